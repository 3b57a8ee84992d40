#include "hub/HubHeartbeat.h"

#include <algorithm>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubAddress.h"
#include "hub/MonotonicTime.h"
#include "receive/QueueReadHandler.h"

namespace tivra_internal {

namespace {

/// A handshake may last as long as so many read time-outs, and no less than so many seconds.
constexpr double kHandshakeTimeouts = 12.0;
constexpr double kLeastHandshakeLimit = 60.0;

} // namespace

void HubHeartbeat::noteProgress() {
    m_initHBTime.store(tp::Clock::monotonic(), std::memory_order_relaxed);
}

bool HubHeartbeat::isHandshakeTimedOut(double beginTime, bool bytesWait) const {
    const double heartbeat = progressTime();
    if (m_readTimeout == 0 || heartbeat == 0.0)
        return false;
    const double elapsed = secondsSince(heartbeat);
    if (bytesWait || (elapsed >= 0.0 && elapsed <= static_cast<double>(m_readTimeout)))
        return isHandshakeTooLong(beginTime);
    eprintf(EPF_INFO,
            "Heartbeat timeout during initialization on HUB: %s; curtime=%f; heartbeat_time=%f; "
            "readTimeout=%ld;  \n",
            m_address.shown().c_str(), tp::Clock::now(), epochOf(heartbeat), m_readTimeout);
    return true;
}

// A hub that gives one sign of life after the other and never gets to the end would hold up a start for ever.
bool HubHeartbeat::isHandshakeTooLong(double beginTime) const {
    const double limit =
        std::max(kHandshakeTimeouts * static_cast<double>(m_readTimeout), kLeastHandshakeLimit);
    const double elapsed = secondsSince(beginTime);
    if (elapsed <= limit)
        return false;
    eprintf(EPF_INFO, "The handshake with HUB %s is not complete after %.0f seconds",
            m_address.shown().c_str(), elapsed);
    return true;
}

void HubHeartbeat::restartCheck() {
    m_last_HB_check = tp::Clock::monotonic();
}

bool HubHeartbeat::isCheckDue() {
    if (m_last_HB_check == 0.0)
        restartCheck();
    const double sinceCheck = secondsSince(m_last_HB_check);
    return m_readTimeout != 0 && (sinceCheck < 0.0 || sinceCheck >= static_cast<double>(m_readTimeout));
}

bool HubHeartbeat::isSilent(const QueueReadHandler& handler, tivra::Session::States state, int64_t queryCount,
                            bool isBehind) {
    const double now = tp::Clock::monotonic();
    m_last_HB_check = now;
    if (state != tivra::Session::TIVRA_SESSION_ESTABLISHED && state != tivra::Session::TIVRA_SESSION_RECOVERY)
        return false;
    const double heartbeat = handler.getHBTime();
    const uint64_t idleCount = handler.getHubIdleCount();
    bool isTimedOut = true;
    if (isSeen())
        isTimedOut = !isBehind && idleCount > static_cast<uint64_t>(m_readTimeout) &&
                     now - heartbeat > static_cast<double>(m_readTimeout);
    if (isTimedOut)
        eprintf(EPF_INFO,
                "Heartbeat timeout on HUB: %s; curtime=%f; heartbeat_msg_time=%f; m_readTimeout=%ld; "
                "HubIdleCount=%lu; queryCnt=%ld \n",
                m_address.shown().c_str(), tp::Clock::now(), epochOf(heartbeat), m_readTimeout,
                static_cast<unsigned long>(idleCount), static_cast<long>(queryCount));
    setSeen(false);
    return isTimedOut;
}

void HubHeartbeat::forget() {
    m_initHBTime = 0.0;
    m_last_HB_check = 0.0;
    setSeen(false);
}

} // namespace tivra_internal
