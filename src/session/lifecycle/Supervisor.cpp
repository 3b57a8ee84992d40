#include "session/lifecycle/Supervisor.h"

#include <cstdio>

#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubClient.h"
#include "hub/LnkApiErrors.h"
#include "session/lifecycle/ChangeOver.h"
#include "session/lifecycle/RunState.h"
#include "session/lifecycle/SupervisorSession.h"
#include "session/sources/HubSourceStatus.h"
#include "session/xref/XrefConnector.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kMessageSize = 500;

std::string connectFailure(const HubClient& client) {
    const int status = client.getLnkapiErrno();
    const int error = status != 0 ? status : client.getConnectErrno();
    char message[kMessageSize];
    std::snprintf(message, sizeof message, "connectHost(%s) failed %d: %s", client.getHubAddr().c_str(),
                  error, (status != 0 ? getLnkAPIErrorString(status) : client.connectFault()).c_str());
    return message;
}

} // namespace

void Supervisor::check(double now, const std::vector<HubClient*>& clients, bool isTurn) {
    for (HubClient* client : clients) {
        // Looked at before each of them, since a dial may have waited for a connection manager.
        if (m_parts.run.isLeavingHubs() || m_parts.run.isGivenUp())
            return;
        if (client->life().hasLeft()) {
            client->closeConnection();
            m_parts.user.deleteHub(client); // the user's standing is that with the other hubs
            m_session.stopServing(*client);
        } else if (!checkClient(now, *client, isTurn)) {
            return;
        }
    }
}

/// False when the pass over the clients must end.
bool Supervisor::checkClient(double now, HubClient& client, bool isTurn) {
    ClientCheck check;
    check.isTurn = isTurn;
    // An established session without a backup never gives up on a hub, however often it fails.
    if (m_parts.changeOver.isFailoverEnabled() || !m_parts.run.isStarted())
        check.failed = client.isSuspended() || client.isPastRetryLimit();
    Verdict verdict = Verdict::Next;
    const bool connected = client.getFd() > 0 && !client.inProgress();
    if (client.life().isGivenUp())
        verdict = Verdict::Decide;
    else if (check.failed || connected)
        verdict = checkHealth(now, client, check);
    else
        verdict = checkConnect(now, client, check);
    return verdict == Verdict::Next || decideFailure(client, check);
}

Supervisor::Verdict Supervisor::checkConnect(double now, HubClient& client, ClientCheck& check) {
    if (client.isStillDelivering()) {
        eprintf(EPF_DBUG, "%s is not dialled before the application has taken what came from it",
                client.getHubAddr().c_str());
        return Verdict::Next;
    }
    const bool isComing = m_parts.managers.m_isCMconnection && m_parts.xref.isComing(client);
    // One that is up and lost at every dial would hold up the requests that need it.
    if (isComing && client.isPastRetryLimit()) {
        XrefConnector::giveUp(client);
        return Verdict::Decide;
    }
    if (!client.mayDial(check.isTurn))
        return Verdict::Next;
    switch (client.connectHost(now)) {
    case HubClient::Dial::Connected:
        eprintf(client.isDialRepeated() ? EPF_DBUG : EPF_INFO, "Successfully Connected to %s on fd %d",
                client.getHubAddr().c_str(), client.getFd());
        client.login();
        return Verdict::Next;
    case HubClient::Dial::UnderWay:
    case HubClient::Dial::AwaitsManager:
        return Verdict::Next;
    case HubClient::Dial::Failed:
        break;
    }
    return checkFailedDial(client, isComing, check);
}

Supervisor::Verdict Supervisor::checkFailedDial(HubClient& client, bool isComing, ClientCheck& check) {
    check.message = connectFailure(client);
    eprintf(client.isDialRepeated() ? EPF_DBUG : EPF_CRIT, "%s", check.message.c_str());
    const bool refusedByManager = client.getLnkapiErrno() != 0;
    client.resetLnkapiErrno();
    // Once it is decided which of them stay, those are dialled for as long as it takes.
    if (isComing)
        XrefConnector::giveUp(client);
    (void)m_session.startWithout(client);
    // Without another side to go to, the retry limit decides on a start, not the first failure.
    if (!refusedByManager && !m_parts.changeOver.isFailoverEnabled() &&
        (m_parts.run.isStarted() || !client.isPastRetryLimit()))
        return Verdict::Next;
    return Verdict::Decide;
}

Supervisor::Verdict Supervisor::checkHealth(double now, HubClient& client, ClientCheck& check) {
    if (client.isReady())
        check.timedOut = client.isHBTimedOut(now);
    else if (!client.waitsForBoxPerms())
        check.timedOut = client.isInitTimedOut(now);
    if (client.isValidConnection() && !check.timedOut)
        return check.failed ? Verdict::Decide : Verdict::Next;
    if (check.timedOut)
        client.noteCloseCause(client.isReady() ? "nothing has come from the hub within the read time-out"
                                               : "the hub hasn't answered within the read time-out");
    m_parts.hubStatus.noteDown(&client);
    if (!m_parts.managers.m_isCMconnection || (!client.getInitialHubDisconnected() && !client.isSuspended()))
        client.closeConnection();
    (void)m_session.startWithout(client);
    // A client that merely lost its connection is dialled again on the next tick.
    return check.failed || check.timedOut ? Verdict::Decide : Verdict::Next;
}

/// False when the pass over the clients must end.
bool Supervisor::decideFailure(HubClient& client, const ClientCheck& check) {
    if (m_session.startWithout(client))
        return true;
    std::string reason;
    const bool retry =
        !m_parts.run.isStarted() &&
        m_parts.managers.checkCMRetry(client.getRetryLimit(), m_parts.changeOver.isFailoverEnabled(),
                                      m_parts.changeOver.isOnBackup(), reason);
    if (m_parts.changeOver.isFailoverEnabled()) {
        if (!m_parts.run.isStarted() && m_parts.changeOver.hasFailedOver() && !retry) {
            abortStartFor(client, check, reason); // both sides have been tried
            return false;
        }
        m_parts.changeOver.startFailover(retry);
        return !m_parts.run.isLeavingHubs();
    }
    if (m_parts.run.isStarted())
        return true;
    if (retry) {
        client.restartRetries();
        return true;
    }
    abortStartFor(client, check, reason);
    return false;
}

void Supervisor::abortStartFor(HubClient& client, const ClientCheck& check, const std::string& retryReason) {
    // The application is to see its login failure first; the next tick comes here again.
    if (client.isSuspended() && !m_parts.user.eventQueueEmpty())
        return;
    std::string reason = retryReason.empty() ? check.message : retryReason;
    if (client.isSuspended())
        reason = client.getSuspendReason();
    else if (check.timedOut)
        reason = "Read timeout waiting for response for request from " + client.getHubAddr();
    else if (client.isPastRetryLimit())
        reason = "Connection retry limit exceeded for " + client.getHubAddr() +
                 (client.encryptionFault().empty() ? "" : ": " + client.encryptionFault());
    m_session.abortStart(reason);
}

} // namespace tivra_internal
