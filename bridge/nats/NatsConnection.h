#pragma once

#include "nats/NatsAddress.h"
#include "nats/NatsHandles.h"

#include <tp/Mutex.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace tivra_bus {

/// A connection to the engine, which is kept up for as long as the object lives.
/// @thread any
class NatsConnection {
public:
    /// Connects. @throws BusError when no server can be reached, or it refuses
    explicit NatsConnection(const NatsAddress& address);
    ~NatsConnection();
    NatsConnection(const NatsConnection&) = delete;
    NatsConnection& operator=(const NatsConnection&) = delete;

    [[nodiscard]] natsConnection* get() const { return m_connection; }
    [[nodiscard]] jsCtx* context() const { return m_context.get(); }
    /// It never waits, whatever the connection is doing.
    [[nodiscard]] bool isConnected() const { return m_isConnected.load(std::memory_order_relaxed); }
    /// How often it was lost: answers to what was sent before don't come any more.
    [[nodiscard]] std::uint64_t losses() const { return m_losses.load(std::memory_order_relaxed); }
    /// @throws UnreadyError for anything but NATS_OK, with what the server has said of late
    void check(natsStatus status, const std::string& attempt, const char* advice = "") const;

private:
    static void onError(natsConnection*, natsSubscription*, natsStatus status, void* self);
    static void onDisconnected(natsConnection*, void* self);
    static void onReconnected(natsConnection*, void* self);
    static void onClosed(natsConnection*, void* self);
    /// Waits until the client library calls back no more.
    void close();

    std::atomic<bool> m_isConnected{true};
    std::atomic<std::uint64_t> m_losses{0};
    mutable tp::Mutex m_mutex;
    tp::ConditionVariable m_changed;
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
    mutable std::string m_lastError TP_GUARDED_BY(m_mutex);
    natsConnection* m_connection = nullptr;
    NatsContext m_context;
};

} // namespace tivra_bus
