// The session check, ten times a second on the first user thread: it counts the hubs, decides the state and
// delivers session events.
#include "session/SessionImpl.h"

#include <event/SessionEvent.h>
#include <session/SessionEventHandler.h>
#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/HubClient.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

using tivra::Session;
using tivra::SessionEvent;

constexpr int kEventsPerCheck = 500;
constexpr const char* kSameHubTwice = "HUB already created, Ports/IP should be of different HUB types";

} // namespace

void SessionImpl::check_user_events() {
    m_user.handleEvents();
}

void SessionImpl::check_session_events() {
    m_lost.beginCheck();
    decideState();
    reportJitConflation();
    if (handleEvents(false))
        m_lost.endCheck();
}

/// The first user thread ends: what has been raised still reaches the application.
void SessionImpl::deliverLastEvents() {
    if (shutdownInProgress || stopRequested)
        handleEvents(true);
    else
        check_session_events();
}

void SessionImpl::decideState() {
    if (m_firstHubs.m_createNextfirstHub) {
        eprintf(EPF_DBUG, "check_session_events: m_createNextfirstHub==true");
        if (createNextfirstHub() != 0) {
            if (isStarted)
                m_firstHubs.m_allFirstHubschecked = true;
            else
                abortStart(kSameHubTwice);
            eprintf(EPF_WARN, "HUB already created,so abort");
        }
    }
    HubCounts counts = countHubs();
    m_xref.decideXrefHubs();
    lastState = state.load();
    counts.pending = countPending();
    counts.downs = m_downSinceLastCheck.exchange(0);

    const CheckDecision decision = decideSessionCheck(counts);
    switch (decision.path) {
    case CheckPath::Down:
        sessionDown(decision.counts);
        break;
    case CheckPath::Last:
        lastHubMissing(decision.counts);
        break;
    case CheckPath::Partial:
        sessionPartial(decision.counts);
        break;
    case CheckPath::AllReady:
        allReady(decision.counts);
        break;
    }
}

/// The event of the state that this check has come to, if that is another one.
HubSourceStatus::StateEvent SessionImpl::stateChange() const {
    const Session::States now = state;
    if (now == lastState)
        return std::nullopt;
    return static_cast<SessionEvent::Types>(now);
}

HubCounts SessionImpl::countHubs() {
    HubCounts counts;
    const bool xrefPhase = m_managers.m_isCMconnection && m_xref.areHubsComing();
    // While the cross-reference hubs come up the session stays established: from the first of them that is
    // missing on, no missing hub counts.
    bool isLatched = false;
    for (HubClient* client : m_hubs.copy()) {
        const bool isComingXref = xrefPhase && client->isComingXref();
        if (client->isReady()) {
            ++counts.ready;
            if (!isComingXref)
                continue;
            XrefConnector::noteConnected(*client);
            eprintf(EPF_DBUG, "XRefHUBConnected is connected successfully %s", client->getHubAddr().c_str());
        } else if (isComingXref) {
            if (client->isSuspended()) {
                XrefConnector::giveUp(*client);
                eprintf(EPF_DBUG, "XRefHUBConnected is suspended - AUTH failed %s",
                        client->getHubAddr().c_str());
            }
            eprintf(EPF_DBUG,
                    "XRefHUBConnected is not yet Ready but not added to notReady to avoid sending session "
                    "events %s",
                    client->getHubAddr().c_str());
            isLatched = true;
        } else if (!client->m_xrefRemove && !isLatched) {
            ++counts.notReady;
        }
    }
    return counts;
}

/// Hubs that are ready but have no read handler yet.
int SessionImpl::countPending() {
    const bool xrefComing = m_xref.isNeeded() && !m_xref.isDone();
    tp::MutexLock lock(newQRHQueue_mutex);
    auto pending = static_cast<int>(newQRHQueue.size());
    for (const HubClient* client : newQRHQueue) {
        const bool isXref = xrefComing && client->isQueryXRefHUB() && client->m_xrefConnected;
        if (!isXref && !client->getInitialHubDisconnected())
            continue;
        --pending;
        eprintf(EPF_DBUG, "HUB %s is not pending: isQueryXRefHUB=%d; m_xrefConnected=%d; disconnected=%d",
                client->getHubAddr().c_str(), client->isQueryXRefHUB() ? 1 : 0,
                client->m_xrefConnected ? 1 : 0, client->getInitialHubDisconnected() ? 1 : 0);
    }
    return pending;
}

void SessionImpl::sessionDown(const HubCounts& counts) {
    state = Session::TIVRA_SESSION_UNAVAILABLE;
    eprintf(EPF_DBUG, "SESSION_UNAVAILABLE: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
            counts.notReady, static_cast<unsigned>(counts.pending));
    // The one hub that is missing may be the first hub, which waits for nobody any more.
    if (counts.notReady == 1)
        continueFirstHub();
    if (const HubSourceStatus::StateEvent change = stateChange())
        m_events.pushState(*change);
}

/// The newest first hub holds back until all others have their box permissions: lets it go on. False when it
/// does not wait.
bool SessionImpl::continueFirstHub() {
    HubClient* const first = m_firstHubs.newest();
    if (first == nullptr || !first->waitsForBoxPerms())
        return false;
    eprintf(EPF_DBUG, "All other HUBs ready");
    // Its own thread does the rest: the socket and the conversation are that thread's.
    first->requestContinueEntitlements();
    return true;
}

void SessionImpl::lastHubMissing(HubCounts counts) {
    if (continueFirstHub())
        return;
    counts.notReady = 1;
    sessionPartial(counts);
}

void SessionImpl::sessionPartial(const HubCounts& counts) {
    const auto pending = static_cast<unsigned>(counts.pending);
    if (lastState == Session::TIVRA_SESSION_UNAVAILABLE) {
        eprintf(EPF_DBUG, "SESSION_UNAVAILABLE: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
                counts.notReady, pending);
        return;
    }
    state = Session::TIVRA_SESSION_RECOVERY;
    eprintf(EPF_DBUG, "SESSION_RECOVERY: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
            counts.notReady, pending);
    m_sources.hubStatus().noteRecovery(stateChange());
}

void SessionImpl::allReady(const HubCounts& counts) {
    if (!m_isInitiallyEstablished)
        stepToNextFirstHub(counts);
    if (!m_firstHubs.m_allFirstHubschecked)
        return;
    markDroppedHubs();
    // A `start` that returns on this outcome must find the session established.
    const auto establish = [this] {
        state = Session::TIVRA_SESSION_ESTABLISHED;
        isStarted = true;
        m_isInitiallyEstablished = true;
    };
    if (isStarted)
        establish();
    else if (!m_latch.settle(StartLatch::Outcome::Established, std::string(), establish))
        return; // the start has been given up or stopped meanwhile
    if (lastState != Session::TIVRA_SESSION_ESTABLISHED)
        m_sources.hubStatus().noteEstablished(m_hubs.copy(), m_sources.entitled(),
                                              lastState == Session::TIVRA_SESSION_UNAVAILABLE, counts,
                                              stateChange());
}

void SessionImpl::stepToNextFirstHub(const HubCounts& counts) {
    const int index = m_firstHubs.m_initIPindex;
    const auto hosts = static_cast<int>(primaryIP2PortLst.size());
    eprintf(EPF_DBUG,
            "check_session_events: m_initIPindex=%d; primaryIP2PortLst.size()=%zu; ready=%d; notReady=%d; "
            "pending=%u",
            index, primaryIP2PortLst.size(), counts.ready, counts.notReady,
            static_cast<unsigned>(counts.pending));
    if (index >= hosts || index == hosts - 1) {
        m_firstHubs.m_allFirstHubschecked = true;
        return;
    }
    m_firstHubs.m_createNextfirstHub = true;
    if (!m_managers.m_isCMconnection)
        m_managers.m_enableCMRetry = false;
    eprintf(EPF_DBUG,
            "check_session_events: m_createNextfirstHub set true:  primaryIP2PortLst.size()=%zu, "
            "primaryIP2PortLst.size()-1=%zu",
            primaryIP2PortLst.size(), primaryIP2PortLst.size() - 1);
}

/// One start and one stop event cover all queues together.
void SessionImpl::reportJitConflation() {
    const int conflating = m_jitCount;
    if (conflating > 0 && !m_isJitConflating) {
        m_isJitConflating = true;
        m_events.pushState(SessionEvent::TIVRA_SESSION_JIT_START_CONFLATING);
    } else if (conflating <= 0 && m_isJitConflating) {
        m_isJitConflating = false;
        m_events.pushState(SessionEvent::TIVRA_SESSION_JIT_STOP_CONFLATING);
    }
}

bool SessionImpl::handleEvents(bool untilEmpty) {
    for (int delivered = 0; untilEmpty || delivered < kEventsPerCheck; ++delivered) {
        const SessionEventPtr event = m_events.pop();
        if (!event)
            return true;
        sessionHandler->onSessionEvent(*event);
        eprintf(EPF_INFO, "SessionEvent: %s", sessionEventText(*event).c_str());
    }
    return false;
}

} // namespace tivra_internal
