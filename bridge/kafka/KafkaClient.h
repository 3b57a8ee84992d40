#pragma once

#include "kafka/KafkaAddress.h"
#include "kafka/KafkaGroupWatch.h"
#include "kafka/KafkaHandles.h"

#include <tp/Mutex.h>

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tivra_bus {

/// Whether an error may be over by itself: brokers start, or elect a leader.
[[nodiscard]] bool isPassing(rd_kafka_resp_err_t error);

/// A handle of the client library, which keeps up its connections itself for as long as it lives.
/// @thread any; callbacks run where the handle is polled
class KafkaClient {
public:
    enum class Role {
        Producer,
        Consumer, ///< what comes is polled for all partitions together
        Follower  ///< each partition is read by itself
    };
    /// What the role needs beside the address.
    struct Setup {
        std::vector<std::pair<std::string, std::string>> properties;
        void (*onDelivery)(rd_kafka_t*, const rd_kafka_message_t*, void*) = nullptr;
        std::function<void(rd_kafka_resp_err_t, rd_kafka_topic_partition_list_t*)> onRebalance;
        KafkaGroupWatch* group = nullptr; ///< which has to stay
    };

    /// Doesn't wait for the engine. @throws BusError for a property that the client library refuses
    KafkaClient(Role role, const KafkaAddress& address, Setup setup);
    ~KafkaClient();
    KafkaClient(const KafkaClient&) = delete;
    KafkaClient& operator=(const KafkaClient&) = delete;

    [[nodiscard]] rd_kafka_t* get() const { return m_handle; }
    [[nodiscard]] int patience() const { return m_patience; }
    /// Whether a server was there when one was last spoken with.
    [[nodiscard]] bool isConnected() const { return m_isConnected.load(std::memory_order_relaxed); }
    /// A server has answered.
    void answered() { m_isConnected.store(true, std::memory_order_relaxed); }
    /// None does.
    void lost() { m_isConnected.store(false, std::memory_order_relaxed); }
    /// @throws UnreadyError for an error that may be over by itself, and BusError for another, with what was
    ///         heard of servers of late
    void check(rd_kafka_resp_err_t error, const std::string& attempt) const;

private:
    static void onError(rd_kafka_t* handle, int error, const char* reason, void* self);
    static void onLog(const rd_kafka_t* handle, int level, const char* facility, const char* text);
    static void onRebalance(rd_kafka_t* handle, rd_kafka_resp_err_t event,
                            rd_kafka_topic_partition_list_t* partitions, void* self);
    void note(const std::string& text) const;

    const std::string m_servers;
    const int m_patience; ///< milliseconds
    const Setup m_setup;
    mutable tp::Mutex m_mutex;
    mutable std::string m_lastError TP_GUARDED_BY(m_mutex);
    std::atomic<bool> m_isConnected{false};
    rd_kafka_t* m_handle = nullptr;
};

} // namespace tivra_bus
