#include "session/NewHubs.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "hub/HubClient.h"

namespace tivra_internal {

void NewHubs::enterReady(HubClient& client) {
    tp::MutexLock lock(newQRHQueue_mutex);
    if (client.markReady() && !client.life().hasLeft())
        newQRHQueue.push_back(&client);
}

void NewHubs::enter(HubClient& client) {
    tp::MutexLock lock(newQRHQueue_mutex);
    newQRHQueue.push_back(&client);
}

int NewHubs::countPending(bool xrefComing) const {
    tp::MutexLock lock(newQRHQueue_mutex);
    auto pending = static_cast<int>(newQRHQueue.size());
    for (const HubClient* client : newQRHQueue) {
        const bool isXref = xrefComing && client->isQueryXRefHUB() && client->life().isConnected();
        if (!isXref && !client->getInitialHubDisconnected())
            continue;
        --pending;
        eprintf(EPF_DBUG, "HUB %s is not pending: isQueryXRefHUB=%d; m_xrefConnected=%d; disconnected=%d",
                client->getHubAddr().c_str(), client->isQueryXRefHUB() ? 1 : 0,
                client->life().isConnected() ? 1 : 0, client->getInitialHubDisconnected() ? 1 : 0);
    }
    return pending;
}

bool NewHubs::serveNext(const std::function<void(HubClient&)>& serve) {
    tp::MutexLock lock(newQRHQueue_mutex);
    if (newQRHQueue.empty())
        return false;
    HubClient* const client = newQRHQueue.front();
    serve(*client);
    newQRHQueue.pop_front();
    eprintf(EPF_DBUG, "HUB [%s] removed from newQRHQueue\n", client->getHubAddr().c_str());
    return true;
}

void NewHubs::serveThese(const std::vector<HubClient*>& hubs, const std::function<void(HubClient&)>& serve,
                         const std::function<void(HubClient&)>& mark) {
    tp::MutexLock lock(newQRHQueue_mutex);
    std::deque<HubClient*> tempQRHQueue;
    for (HubClient* client : newQRHQueue) {
        if (std::find(hubs.begin(), hubs.end(), client) == hubs.end()) {
            eprintf(EPF_DBUG, "Add hubclient(%s) that is not an xref hub to tempQRHQueue",
                    client->getHubAddr().c_str());
            tempQRHQueue.push_back(client);
            continue;
        }
        if (!client->hasReadHandler())
            serve(*client);
    }
    newQRHQueue.swap(tempQRHQueue);
    for (HubClient* client : hubs)
        if (client->hasReadHandler())
            mark(*client);
    eprintf(EPF_DBUG, "Check all xref hubs done, newQRHQueue  size %zu", newQRHQueue.size());
}

void NewHubs::clear() {
    tp::MutexLock lock(newQRHQueue_mutex);
    for (const HubClient* client : newQRHQueue)
        eprintf(EPF_DBUG, "Discarding QRH request for client %p", static_cast<const void*>(client));
    newQRHQueue.clear();
}

} // namespace tivra_internal
