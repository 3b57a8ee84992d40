#include "session/DroppedHubs.h"

#include <algorithm>

namespace tivra_internal {

void DroppedHubs::add(HubClient* client) {
    m_disconnectInitialHUB = true;
    tp::MutexLock lock(disconnectHubClientLst_mutex);
    disconnectHubClientLst.push_back(client);
}

std::vector<HubClient*> DroppedHubs::listed() const {
    tp::MutexLock lock(disconnectHubClientLst_mutex);
    return disconnectHubClientLst;
}

void DroppedHubs::markNew(const std::function<void(HubClient&)>& mark) {
    if (!m_disconnectInitialHUB.exchange(false))
        return;
    tp::MutexLock lock(disconnectHubClientLst_mutex);
    for (HubClient* client : disconnectHubClientLst)
        mark(*client);
}

void DroppedHubs::letOneGo(const std::function<bool(const HubClient&)>& wanted,
                           const std::function<void(HubClient&)>& letGo) {
    if (!m_notifyInitHUBdisconenct)
        return;
    tp::MutexLock lock(disconnectHubClientLst_mutex);
    const auto found = std::find_if(disconnectHubClientLst.begin(), disconnectHubClientLst.end(),
                                    [&wanted](const HubClient* client) { return wanted(*client); });
    if (found != disconnectHubClientLst.end()) {
        letGo(**found);
        disconnectHubClientLst.erase(found);
    }
    if (disconnectHubClientLst.empty())
        m_notifyInitHUBdisconenct = false;
}

void DroppedHubs::reset() {
    m_disconnectInitialHUB = false;
    m_notifyInitHUBdisconenct = false;
    tp::MutexLock lock(disconnectHubClientLst_mutex);
    disconnectHubClientLst.clear();
}

} // namespace tivra_internal
