#include "session/lifecycle/StateMachine.h"

#include <string>

#include <event/SessionEvent.h>
#include <tp/eprintf.h>

#include "hub/ConnectionManagers.h"
#include "hub/HubClient.h"
#include "session/NewHubs.h"
#include "session/SessionEventQueue.h"
#include "session/lifecycle/FirstHubs.h"
#include "session/lifecycle/PartialStart.h"
#include "session/lifecycle/RunState.h"
#include "session/lifecycle/StartLatch.h"
#include "session/lifecycle/StateSession.h"
#include "session/sources/SourceRegistry.h"
#include "session/xref/XrefConnector.h"

namespace tivra_internal {
namespace {

using tivra::Session;
using tivra::SessionEvent;

constexpr const char* kSameHubTwice = "HUB already created, Ports/IP should be of different HUB types";

/// A cross-reference hub on its way up is ready, or is not.
void noteComingXref(HubClient& client, bool isReady) {
    if (isReady) {
        XrefConnector::noteConnected(client);
        eprintf(EPF_DBUG, "XRefHUBConnected is connected successfully %s", client.getHubAddr().c_str());
        return;
    }
    if (client.isSuspended()) {
        XrefConnector::giveUp(client);
        eprintf(EPF_DBUG, "XRefHUBConnected is suspended - AUTH failed %s", client.getHubAddr().c_str());
    }
    eprintf(EPF_DBUG,
            "XRefHUBConnected is not yet Ready but not added to notReady to avoid sending session "
            "events %s",
            client.getHubAddr().c_str());
}

} // namespace

bool StateMachine::check() {
    decideState();
    reportJitConflation();
    return state() != m_lastState;
}

void StateMachine::decideState() {
    makeNextFirstHub();
    HubCounts counts = countHubs();
    m_parts.xref.decideXrefHubs();
    m_lastState = state();
    counts.pending = m_parts.newHubs.countPending(m_parts.xref.isNeeded() && !m_parts.xref.isDone());
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

void StateMachine::makeNextFirstHub() {
    if (!m_parts.firstHubs.isNextDue())
        return;
    eprintf(EPF_DBUG, "check_session_events: m_createNextfirstHub==true");
    if (m_parts.firstHubs.createNext())
        return;
    // Before the end of the start, which writes its own line at once.
    eprintf(EPF_WARN, "HUB already created,so abort");
    if (m_parts.run.isStarted())
        m_parts.firstHubs.endList();
    else
        m_session.abortStart(kSameHubTwice);
}

/// The event of the state that this check has come to, if that is another one.
HubSourceStatus::StateEvent StateMachine::stateChange() const {
    const Session::States now = state();
    if (now == m_lastState)
        return std::nullopt;
    return static_cast<SessionEvent::Types>(now);
}

HubCounts StateMachine::countHubs() {
    HubCounts counts;
    const bool xrefPhase = m_parts.managers.m_isCMconnection && m_parts.xref.areHubsComing();
    // While the cross-reference hubs come up the session stays established: from the first of them that is
    // missing on, no missing hub counts.
    bool isLatched = false;
    for (HubClient* client : m_session.hubs()) {
        const bool isComingXref = xrefPhase && client->isComingXref();
        const bool isReady = client->isReady();
        if (isReady)
            ++counts.ready;
        else if (isComingXref)
            isLatched = true;
        else if (isAside(*client))
            ++counts.aside;
        else if (!client->life().leavesForGood() && !isLatched)
            ++counts.notReady;
        if (isComingXref)
            noteComingXref(*client, isReady);
    }
    return counts;
}

/// Once the session is established the hub is one that is missing, like any other.
bool StateMachine::isAside(const HubClient& client) const {
    return !m_isInitiallyEstablished && m_parts.partial.isAside(&client);
}

void StateMachine::sessionDown(const HubCounts& counts) {
    m_state = Session::TIVRA_SESSION_UNAVAILABLE;
    eprintf(EPF_DBUG, "SESSION_UNAVAILABLE: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
            counts.notReady, static_cast<unsigned>(counts.pending));
    // The one hub that is missing may be the first hub, which waits for nobody any more.
    if (counts.notReady == 1)
        (void)continueFirstHub();
    // Nothing comes of those before it at present, so the next first hub has its turn.
    if (counts.notReady == 0 && counts.aside > 0)
        m_parts.firstHubs.stepToNext(counts);
    if (const HubSourceStatus::StateEvent change = stateChange()) {
        m_parts.sources.hubStatus().raiseSourceEvents();
        m_parts.events.pushState(*change);
    }
}

/// The newest first hub holds back until all others have their box permissions: lets it go on. False when it
/// does not wait.
bool StateMachine::continueFirstHub() {
    HubClient* const first = m_parts.firstHubs.newest();
    if (first == nullptr || !first->waitsForBoxPerms())
        return false;
    eprintf(EPF_DBUG, "All other HUBs ready");
    // Its own thread does the rest: the socket and the handshake are that thread's.
    first->requestContinueEntitlements();
    return true;
}

void StateMachine::lastHubMissing(HubCounts counts) {
    if (continueFirstHub())
        return;
    counts.notReady = 1;
    sessionPartial(counts);
}

void StateMachine::sessionPartial(const HubCounts& counts) {
    const auto pending = static_cast<unsigned>(counts.pending);
    // A partial start is content with some of the hubs, and so is what follows it.
    const bool isPartial = m_parts.partial.isOn() && m_isInitiallyEstablished && counts.ready > 0;
    if (m_lastState == Session::TIVRA_SESSION_UNAVAILABLE && !isPartial) {
        eprintf(EPF_DBUG, "SESSION_UNAVAILABLE: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
                counts.notReady, pending);
        return;
    }
    m_state = Session::TIVRA_SESSION_RECOVERY;
    eprintf(EPF_DBUG, "SESSION_RECOVERY: # HUBs ready=%d; notReady=%d; pending=%u", counts.ready,
            counts.notReady, pending);
    m_parts.sources.hubStatus().noteRecovery(stateChange());
}

void StateMachine::allReady(const HubCounts& counts) {
    if (!m_isInitiallyEstablished)
        m_parts.firstHubs.stepToNext(counts);
    if (!m_parts.firstHubs.areAllMade())
        return;
    if (counts.aside > 0 && !m_parts.partial.isEnough(counts.ready))
        return;
    const Session::States reached =
        counts.aside > 0 ? Session::TIVRA_SESSION_RECOVERY : Session::TIVRA_SESSION_ESTABLISHED;
    m_session.markDroppedHubs();
    // A `start` that returns on this outcome must find the session established.
    if (m_parts.run.isStarted())
        establish(reached);
    else if (!m_parts.latch.settle(StartLatch::Outcome::Established, std::string(),
                                   [this, reached] { establish(reached); }))
        return; // the start has been given up or stopped meanwhile
    if (m_lastState != Session::TIVRA_SESSION_ESTABLISHED)
        m_parts.sources.hubStatus().noteEstablished(m_session.hubs(), m_parts.sources.entitled(),
                                                    m_lastState == Session::TIVRA_SESSION_UNAVAILABLE, counts,
                                                    stateChange());
}

void StateMachine::establish(Session::States state) {
    m_state = state;
    m_parts.run.noteEstablished();
    m_isInitiallyEstablished = true;
}

/// One start and one stop event cover all queues together.
void StateMachine::reportJitConflation() {
    const int conflating = m_jitCount;
    if (conflating > 0 && !m_isJitConflating) {
        m_isJitConflating = true;
        m_parts.events.pushState(SessionEvent::TIVRA_SESSION_JIT_START_CONFLATING);
    } else if (conflating <= 0 && m_isJitConflating) {
        m_isJitConflating = false;
        m_parts.events.pushState(SessionEvent::TIVRA_SESSION_JIT_STOP_CONFLATING);
    }
}

void StateMachine::reset() {
    m_isInitiallyEstablished = false;
    m_state = Session::TIVRA_SESSION_UNAVAILABLE;
    m_jitCount = 0;
    m_isJitConflating = false;
    m_downSinceLastCheck = 0;
}

} // namespace tivra_internal
