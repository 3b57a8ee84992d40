#pragma once

#include "kafka/KafkaClient.h"
#include "reader/BusSource.h"

#include <tp/Mutex.h>

#include <atomic>
#include <string>
#include <thread>

namespace tivra_bus {

/// Hands over what bridges say of sources, and asks the brokers each second, by which it knows whether they
/// are there. On a thread of its own.
/// @thread follow() one at a time, isConnected() any
class KafkaStatus {
public:
    /// @throws BusError for a property that the client library refuses
    explicit KafkaStatus(const KafkaAddress& address);
    ~KafkaStatus();
    KafkaStatus(const KafkaStatus&) = delete;
    KafkaStatus& operator=(const KafkaStatus&) = delete;

    /// Once.
    void follow(BusSource::OnStatus onStatus) TP_EXCLUDES(m_mutex);
    [[nodiscard]] bool isConnected() const { return m_client.isConnected(); }

private:
    void run();
    void hand(std::string&& status) TP_EXCLUDES(m_mutex);
    void ask();

    KafkaClient m_client;
    tp::Mutex m_mutex;
    BusSource::OnStatus m_onStatus TP_GUARDED_BY(m_mutex);
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

} // namespace tivra_bus
