#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;

/// First hubs that turned out to be doors only: listed on their own thread, marked by the session check once
/// all hubs are up, taken note of by the master thread, and let go on their own thread again. @thread any
class DroppedHubs {
public:
    /// The hub is only a door. @thread its own
    void add(HubClient* client);
    [[nodiscard]] std::vector<HubClient*> listed() const;
    /// Calls `mark` for all that are listed, under the mutex, if one has come since the last time. @thread
    /// first user
    void markNew(const std::function<void(HubClient&)>& mark);
    /// The master thread has seen one that was marked: the hubs' threads are to let them go.
    void noteHandedOver() { m_notifyInitHUBdisconenct = true; }
    /// Calls `letGo` for the first one that is `wanted`, under the mutex, and takes it off the list. @thread
    /// its own
    void letOneGo(const std::function<bool(const HubClient&)>& wanted,
                  const std::function<void(HubClient&)>& letGo);
    void reset();

private:
    std::atomic<bool> m_disconnectInitialHUB{false};    ///< some are listed and not yet marked
    std::atomic<bool> m_notifyInitHUBdisconenct{false}; ///< the hubs' threads are to let them go

    mutable tp::Mutex disconnectHubClientLst_mutex{kLockDisconnectHubClientLst};
    std::vector<HubClient*> disconnectHubClientLst TP_GUARDED_BY(disconnectHubClientLst_mutex);
};

} // namespace tivra_internal
