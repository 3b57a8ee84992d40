#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// What comes after an attempt to connect the cross-reference hubs in which some have failed.
enum class XrefRetry {
    None,    ///< no attempt has failed, or another has succeeded since
    Due,     ///< they are asked for again, after a pause, by the next request that needs them
    UnderWay ///< they come up beside the session's other work
};

/// The cross-reference hubs of a connection-manager session: named by port from the start, connected only
/// when a request or an entitlement needs them first. @thread any
struct XrefHubs {
    std::atomic<bool> m_initialXrefConnection{false}; ///< the first need has been seen
    std::atomic<bool> m_XrefHUBConnReq{false};        ///< connections have been requested
    std::atomic<bool> m_allCreated{false};            ///< and every hub has its client
    std::atomic<bool> m_XRefHUBConnected{false};      ///< all are connected
    std::atomic<bool> m_XRefHUBRemove{false};         ///< some failed and are to be removed
    std::atomic<bool> m_XRefHUBDone{false};           ///< all have their read handlers

    mutable tp::Mutex m_queryXRefPortLst_mutex;
    std::set<uint16_t> m_queryXRefPortLst TP_GUARDED_BY(m_queryXRefPortLst_mutex);

    mutable tp::Mutex m_XRefHubLst_mutex{kLockXRefHubLst};
    std::set<HubClient*> m_XRefHubLst TP_GUARDED_BY(m_XRefHubLst_mutex);

    /// Entitlements whose hub is not connected yet.
    std::atomic<bool> m_needRemainingPorts{false};
    mutable tp::Mutex m_addRouteWhenPortConnected_mutex;
    std::map<int, uint16_t> m_addRouteWhenPortConnected TP_GUARDED_BY(m_addRouteWhenPortConnected_mutex);

    // The master thread's own.
    XrefRetry m_retry = XrefRetry::None;
    double m_attemptTime = 0.0;  ///< when the last attempt began; monotonic, as the next
    double m_attemptLimit = 0.0; ///< the seconds after which its hubs must be connected or have failed
    double m_failureTime = 0.0;  ///< when the last attempt failed
    std::deque<std::unique_ptr<RequestInternal>> m_waiting; ///< requests that came while one is under way

    [[nodiscard]] bool hasPorts() const {
        tp::MutexLock lock(m_queryXRefPortLst_mutex);
        return !m_queryXRefPortLst.empty();
    }
    [[nodiscard]] std::vector<HubClient*> hubs() const {
        tp::MutexLock lock(m_XRefHubLst_mutex);
        return {m_XRefHubLst.begin(), m_XRefHubLst.end()};
    }
    /// The hubs come up: their absence is no loss of the session.
    [[nodiscard]] bool isPhase() const { return m_XrefHUBConnReq && !m_XRefHUBConnected && !m_XRefHUBRemove; }

    /// The hub of that port, be it in the session or not; null when it has never been asked for.
    [[nodiscard]] HubClient* ofPort(uint16_t port) const;
    void noteFailure();
    /// A failed attempt may be repeated.
    [[nodiscard]] bool isRetryDue() const;

    void reset();
};

} // namespace tivra_internal
