#pragma once

#include <atomic>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;

/// First hubs that turned out to be doors only: listed on their own thread, marked by the session check once
/// all hubs are up, taken note of by the master thread, and let go on their own thread again. @thread any
struct DroppedHubs {
    std::atomic<bool> m_disconnectInitialHUB{false};    ///< some are listed and not yet marked
    std::atomic<bool> m_notifyInitHUBdisconenct{false}; ///< the hubs' threads are to let them go

    mutable tp::Mutex disconnectHubClientLst_mutex{kLockDisconnectHubClientLst};
    std::vector<HubClient*> disconnectHubClientLst TP_GUARDED_BY(disconnectHubClientLst_mutex);

    [[nodiscard]] std::vector<HubClient*> listed() const {
        tp::MutexLock lock(disconnectHubClientLst_mutex);
        return disconnectHubClientLst;
    }
    void reset() {
        m_disconnectInitialHUB = false;
        m_notifyInitHUBdisconenct = false;
        tp::MutexLock lock(disconnectHubClientLst_mutex);
        disconnectHubClientLst.clear();
    }
};

} // namespace tivra_internal
