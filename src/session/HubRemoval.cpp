// Hubs that leave a running session: a first hub that was only a door, and what any hub leaves behind.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "receive/QueueReadHandler.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

void SessionImpl::dropFirstHubLater(HubClient* client) {
    m_dropped.add(client);
}

/// All hubs are up: the master thread is told of the first hubs that may go.
void SessionImpl::markDroppedHubs() {
    if (!m_managers.m_isCMconnection)
        return;
    m_dropped.markNew([this](HubClient& client) {
        client.setInitialHubDisconnected(true);
        // Before the first request is routed: what is sent to a hub that goes would be lost with it.
        forgetRoutes(client);
        eprintf(EPF_INFO, "initialHubDisconnected is set to true for hub %s  and added to newQRHQueue",
                client.getHubAddr().c_str());
        m_newHubs.enter(client);
        wakeMaster();
    });
}

/// Lets go one listed first hub of this reactor; the next one follows on the next tick.
void SessionImpl::dropOneFirstHub(const HubEventReactor& reactor) {
    if (!m_managers.m_isCMconnection)
        return;
    const auto isMine = [&reactor](const HubClient& client) {
        return client.getReactor() == &reactor && client.getInitialHubDisconnected();
    };
    m_dropped.letOneGo(isMine, [this](HubClient& client) { disconnectInitilaHUB(client); });
}

void SessionImpl::disconnectInitilaHUB(HubClient& client) {
    eprintf(EPF_INFO, "SessionImpl::disconnectInitilaHUB  hub=%s", client.getHubAddr().c_str());
    HubEventReactor* const reactor = m_reactors.reactorOf(&client);
    client.life().retire();
    client.closeConnection();
    m_hubs.retire(client.getIndex());
    m_reactors.removeHub(&client);
    m_reactors.closeQueueHandler(client.readQueueHandler());
    forgetHub(client);
    takeBackRequestsOf(client, reactor);
    eprintf(EPF_INFO, "SessionImpl::disconnectInitilaHUB  exit");
}

void SessionImpl::forgetRoutes(HubClient& client) {
    m_split.forget(&client);
    m_sources.forgetRoutes(&client);
}

/// No table leads to the hub any more.
void SessionImpl::forgetHub(HubClient& client) {
    forgetRoutes(client);
    if (QueueReadHandler* const handler = client.readQueueHandler())
        handler->endJitConflation();
    m_sources.hubStatus().forget(&client);
}

void SessionImpl::takeBackRequestsOf(HubClient& client, HubEventReactor* reactor) {
    m_responses.disown(&client);
    m_lost.disown(&client);
    if (reactor == nullptr)
        return;
    reactor->forgetClient(&client);
    for (std::unique_ptr<RequestInternal>& request : reactor->takeRequestsOf(&client))
        takeBackRequest(std::move(request), &client);
}

} // namespace tivra_internal
