#pragma once

#include <atomic>

#include <session/Session.h>

#include "session/lifecycle/SessionCheckDecision.h"
#include "session/sources/HubSourceStatus.h"

namespace tivra_internal {

class ConnectionManagers;
class FirstHubs;
class HubClient;
class NewHubs;
class PartialStart;
class RunState;
class SessionEventQueue;
class SourceRegistry;
class StartLatch;
class StateSession;
class XrefConnector;

/// The state of a session. The session check decides it, when a hub has changed and at least once a second:
/// it counts the hubs, raises the events of the state, and settles the start. @thread first user, unless a
/// line says otherwise
class StateMachine {
public:
    /// What it looks at and writes to; all borrowed.
    struct Parts {
        RunState& run;
        StartLatch& latch;
        const PartialStart& partial;
        FirstHubs& firstHubs;
        const NewHubs& newHubs;
        XrefConnector& xref;
        ConnectionManagers& managers;
        SourceRegistry& sources;
        SessionEventQueue& events;
    };

    StateMachine(StateSession& session, const Parts& parts) : m_session(session), m_parts(parts) {}

    /// @thread any
    [[nodiscard]] tivra::Session::States state() const { return m_state.load(); }
    /// With the present hubs. @thread any
    [[nodiscard]] bool isInitiallyEstablished() const { return m_isInitiallyEstablished; }
    /// A hub that was ready is lost: the next check reports that though it may be back by then. @thread any
    void countLoss() { ++m_downSinceLastCheck; }
    /// One more (+1) or one fewer (-1) hub conflates just in time. @thread any
    void addJitCount(int delta) { m_jitCount += delta; }

    /// True when it has come to another state.
    bool check();
    /// All hubs are gone. @thread master; there is no first user
    void reset();

private:
    void makeNextFirstHub();
    void decideState();
    [[nodiscard]] HubSourceStatus::StateEvent stateChange() const;
    [[nodiscard]] HubCounts countHubs();
    void sessionDown(const HubCounts& counts);
    void lastHubMissing(HubCounts counts);
    [[nodiscard]] bool continueFirstHub();
    void sessionPartial(const HubCounts& counts);
    void allReady(const HubCounts& counts);
    void establish(tivra::Session::States state);
    [[nodiscard]] bool isAside(const HubClient& client) const;
    void reportJitConflation();

    StateSession& m_session;
    const Parts m_parts;

    std::atomic<tivra::Session::States> m_state{tivra::Session::TIVRA_SESSION_UNAVAILABLE};
    /// That of the check before.
    tivra::Session::States m_lastState = tivra::Session::TIVRA_SESSION_UNAVAILABLE;
    std::atomic<bool> m_isInitiallyEstablished{false};
    std::atomic<int> m_downSinceLastCheck{0};
    std::atomic<int> m_jitCount{0};
    bool m_isJitConflating = false; ///< as reported last
};

} // namespace tivra_internal
