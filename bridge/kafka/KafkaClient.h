#pragma once

#include "kafka/KafkaAddress.h"
#include "kafka/KafkaHandles.h"

#include <tp/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tivra_bus {

/// Whether an error may be over by itself: brokers start, elect a leader, or hear of a topic late.
[[nodiscard]] bool isPassing(rd_kafka_resp_err_t error);
/// What to do about it, after a colon; nothing if that is unknown.
[[nodiscard]] const char* adviceFor(rd_kafka_resp_err_t error);

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
    /// @throws UnreadyError for an error that may be over by itself, and BusError for another, such as a
    ///         password or a certificate that isn't accepted, with what was heard of servers of late
    void check(rd_kafka_resp_err_t error, const std::string& attempt) const;
    /// Of the first message of that time or a later one, negative when there is none.
    /// @param time  milliseconds since 1970, or RD_KAFKA_OFFSET_BEGINNING or RD_KAFKA_OFFSET_END. The client
    ///        library's own call for these two waits on after its time-out.
    /// @throws BusError as check() does
    [[nodiscard]] std::int64_t offsetAt(const std::string& topic, unsigned partition, std::int64_t time,
                                        const std::string& attempt) const;

private:
    using Clock = std::chrono::steady_clock;

    static void onError(rd_kafka_t* handle, int error, const char* reason, void* self);
    static void onLog(const rd_kafka_t* handle, int level, const char* facility, const char* text);
    static int onCertificate(rd_kafka_t* handle, const char* server, std::int32_t id, int* error, int depth,
                             const char* bytes, std::size_t size, char* text, std::size_t textSize,
                             void* self);
    /// What stands behind an error that the client library gives without its cause.
    struct Heard {
        std::string text;
        rd_kafka_resp_err_t error = RD_KAFKA_RESP_ERR_NO_ERROR; ///< where the text is of one
        Clock::time_point time{};
    };
    void note(const std::string& text, rd_kafka_resp_err_t error) const TP_EXCLUDES(m_mutex);
    /// What was heard last, if that is of late.
    [[nodiscard]] Heard heard() const TP_EXCLUDES(m_mutex);

    const std::string m_servers;
    const int m_patience; ///< milliseconds
    const Setup m_setup;
    mutable tp::Mutex m_mutex;
    mutable Heard m_heard TP_GUARDED_BY(m_mutex);
    std::atomic<bool> m_isConnected{false};
    rd_kafka_t* m_handle = nullptr;
};

} // namespace tivra_bus
