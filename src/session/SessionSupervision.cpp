// Once a second each hub thread looks after its own hubs: dials, logs in, finds losses and silence, and
// decides when a failure is beyond repair.
#include "session/SessionImpl.h"

#include <cstdio>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/ErrorText.h"
#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "hub/LnkApiErrors.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kMessageSize = 500;

std::string connectFailure(const HubClient& client) {
    const int status = client.getLnkapiErrno();
    const int error = status != 0 ? status : client.getConnectErrno();
    char message[kMessageSize];
    std::snprintf(message, sizeof message, "connectHost(%s) failed %d: %s", client.getHubAddr().c_str(),
                  error, (status != 0 ? getLnkAPIErrorString(status) : errorText(error)).c_str());
    return message;
}

} // namespace

void SessionImpl::check_hub_clients(double now, HubEventReactor& reactor) {
    dropOneFirstHub(reactor);
    const std::vector<HubClient*> clients = m_reactors.hubsOf(reactor.getIndex());
    for (HubClient* client : clients) {
        // Looked at before each of them, since a dial may have waited for a connection manager.
        if (m_run.isLeavingHubs() || m_run.isGivenUp())
            return;
        if (client->m_retired) {
            client->closeConnection();
            m_user.deleteHub(client); // the user's standing is that with the other hubs
            m_reactors.removeHub(client);
            continue;
        }
        ClientCheck check;
        // An established session without a backup never gives up on a hub, however often it fails.
        if (m_changeOver.isFailoverEnabled() || !m_run.isStarted())
            check.failed = client->isSuspended() || client->isPastRetryLimit();
        ClientVerdict verdict = ClientVerdict::Next;
        const bool connected = client->getFd() > 0 && !client->inProgress();
        if (client->m_xrefRemove)
            verdict = ClientVerdict::Decide;
        else if (check.failed || connected)
            verdict = checkHealth(now, *client, check);
        else
            verdict = checkConnect(now, *client, check);
        if (verdict == ClientVerdict::Decide && !decideFailure(*client, check))
            return;
    }
}

SessionImpl::ClientVerdict SessionImpl::checkConnect(double now, HubClient& client, ClientCheck& check) {
    if (client.isStillDelivering()) {
        eprintf(EPF_DBUG, "%s is not dialled before the application has taken what came from it",
                client.getHubAddr().c_str());
        return ClientVerdict::Next;
    }
    const bool isComing = m_managers.m_isCMconnection && m_xref.isComing(client);
    // One that is up and lost at every dial would hold up the requests that need it.
    if (isComing && client.isPastRetryLimit()) {
        XrefConnector::giveUp(client);
        return ClientVerdict::Decide;
    }
    if (!client.mayDial())
        return ClientVerdict::Next;
    switch (client.connectHost(now)) {
    case HubClient::Dial::Connected:
        eprintf(client.isDialRepeated() ? EPF_DBUG : EPF_INFO, "Successfully Connected to %s on fd %d",
                client.getHubAddr().c_str(), client.getFd());
        client.login();
        return ClientVerdict::Next;
    case HubClient::Dial::UnderWay:
    case HubClient::Dial::AwaitsManager:
        return ClientVerdict::Next;
    case HubClient::Dial::Failed:
        break;
    }
    check.message = connectFailure(client);
    eprintf(client.isDialRepeated() ? EPF_DBUG : EPF_CRIT, "%s", check.message.c_str());
    const bool refusedByManager = client.getLnkapiErrno() != 0;
    client.resetLnkapiErrno();
    // Once it is decided which of them stay, those are dialled for as long as it takes.
    if (isComing)
        XrefConnector::giveUp(client);
    // Without another side to go to, the retry limit decides on a start, not the first failure.
    if (!refusedByManager && !m_changeOver.isFailoverEnabled() &&
        (m_run.isStarted() || !client.isPastRetryLimit()))
        return ClientVerdict::Next;
    return ClientVerdict::Decide;
}

SessionImpl::ClientVerdict SessionImpl::checkHealth(double now, HubClient& client, ClientCheck& check) {
    if (client.isReady())
        check.timedOut = client.isHBTimedOut(now);
    else if (!client.waitsForBoxPerms())
        check.timedOut = client.isInitTimedOut(now);
    if (client.isValidConnection() && !check.timedOut)
        return check.failed ? ClientVerdict::Decide : ClientVerdict::Next;
    m_sources.hubStatus().noteDown(&client);
    if (!m_managers.m_isCMconnection || (!client.getInitialHubDisconnected() && !client.isSuspended()))
        client.closeConnection();
    // A client that merely lost its connection is dialled again on the next tick.
    return check.failed || check.timedOut ? ClientVerdict::Decide : ClientVerdict::Next;
}

/// False when the pass over the clients must end.
bool SessionImpl::decideFailure(HubClient& client, const ClientCheck& check) {
    std::string reason;
    const bool retry = !m_run.isStarted() &&
                       m_managers.checkCMRetry(client.getRetryLimit(), m_changeOver.isFailoverEnabled(),
                                               m_changeOver.isOnBackup(), reason);
    if (m_changeOver.isFailoverEnabled()) {
        if (!m_run.isStarted() && m_changeOver.hasFailedOver() && !retry) {
            abortStartFor(client, check, reason); // both sides have been tried
            return false;
        }
        m_changeOver.startFailover(retry);
        return !m_run.isLeavingHubs();
    }
    if (m_run.isStarted())
        return true;
    if (retry) {
        client.restartRetries();
        return true;
    }
    abortStartFor(client, check, reason);
    return false;
}

void SessionImpl::abortStartFor(HubClient& client, const ClientCheck& check, const std::string& retryReason) {
    // The application is to see its login failure first; the next tick comes here again.
    if (client.isSuspended() && !m_user.eventQueueEmpty())
        return;
    std::string reason = retryReason.empty() ? check.message : retryReason;
    if (client.isSuspended())
        reason = client.getSuspendReason();
    else if (check.timedOut)
        reason = "Read timeout waiting for response for request from " + client.getHubAddr();
    else if (client.isPastRetryLimit())
        reason = "Connection retry limit exceeded for " + client.getHubAddr();
    abortStart(reason);
}

/// Returns what a restart needs to its first state; the configuration and the watchlist stay.
void SessionImpl::reset() {
    eprintf(EPF_DBUG, "SessionImpl::reset(ENTRY)");
    m_firstHubs.reset();
    m_dropped.reset();
    m_xref.reset();
    const bool isStop = m_run.isStopRequested();
    if (isStop) {
        m_changeOver.forget();
        // Standing requests keep their tags, so new ones must not collide with them.
        m_tags.restartAfter(watchlist.highestTag());
        m_managers.prepareNextStart();
        if (watchlist.size() == 0)
            m_router.ownSubscriptions().reset();
    }
    m_check.reset();
    m_changeOver.enableFailover(false);
    m_run.noteHubsGone();
    m_responses.logEntries();
    m_merger.abandonResponses(isStop);
    m_dictionaries.reset();
    m_queue.reset();
    m_sources.reset();
    m_portDetails.reset();
    m_queueDepthAlarm = {};
}

} // namespace tivra_internal
