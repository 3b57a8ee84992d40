#pragma once

#include <atomic>
#include <cstdint>

#include <session/Session.h>

namespace tivra_internal {

class HubAddress;
class QueueReadHandler;

/// Notices a hub that says nothing for as long as the read time-out: in its handshake, and once it is ready.
/// @thread hub, but for the getters and setters that say otherwise. All times are monotonic.
class HubHeartbeat {
public:
    /// `readTimeout` in seconds; 0 turns all tests off.
    HubHeartbeat(const HubAddress& address, long readTimeout)
        : m_address(address), m_readTimeout(readTimeout) {}

    // --- the handshake ---
    /// It goes on: the time-out starts anew.
    void noteProgress();
    /// @thread any
    [[nodiscard]] double progressTime() const { return m_initHBTime.load(std::memory_order_relaxed); }
    /// Of a connected hub whose handshake began at that time. `bytesWait`: it has sent what isn't read yet.
    [[nodiscard]] bool isHandshakeTimedOut(double beginTime, bool bytesWait) const;

    // --- a ready hub ---
    /// Bytes or a heartbeat have been seen. @thread any
    void setSeen(bool seen) { m_HBSeen.store(seen, std::memory_order_relaxed); }
    [[nodiscard]] bool isSeen() const { return m_HBSeen.load(std::memory_order_relaxed); }
    /// The next check is due a read time-out from now.
    void restartCheck();
    [[nodiscard]] bool isCheckDue();
    /// The check that is due, by what the hub's read handler has seen. `isBehind`: that is old, and only says
    /// how slow the application is.
    [[nodiscard]] bool isSilent(const QueueReadHandler& handler, tivra::Session::States state,
                                int64_t queryCount, bool isBehind);

    /// The connection is closed.
    void forget();

private:
    [[nodiscard]] bool isHandshakeTooLong(double beginTime) const;

    const HubAddress& m_address;
    const long m_readTimeout;
    std::atomic<double> m_initHBTime{0.0};
    double m_last_HB_check = 0.0;
    std::atomic<bool> m_HBSeen{false};
};

} // namespace tivra_internal
