#pragma once

#include <string>
#include <vector>

namespace tivra_internal {

class ChangeOver;
class ConnectionManagers;
class HubClient;
class HubSourceStatus;
class RunState;
class SupervisorSession;
class UserInfoImpl;
class XrefConnector;

/// Once a second, and when one of them has changed, each hub thread looks after its own hubs: dials, logs in,
/// finds losses and silence, and decides when a failure is beyond repair. @thread hub
class Supervisor {
public:
    /// What it looks at and writes to; all borrowed.
    struct Parts {
        const RunState& run;
        ChangeOver& changeOver;
        ConnectionManagers& managers;
        const XrefConnector& xref;
        HubSourceStatus& hubStatus;
        UserInfoImpl& user;
    };

    Supervisor(SupervisorSession& session, const Parts& parts) : m_session(session), m_parts(parts) {}

    /// All hubs of one thread. At a turn, which comes once a second, dials are repeated; between two turns
    /// only the first dial of an outage is made.
    void check(double now, const std::vector<HubClient*>& clients, bool isTurn);

private:
    enum class Verdict { Next, Decide };
    struct ClientCheck {
        bool isTurn = false;
        bool failed = false;
        bool timedOut = false;
        std::string message;
    };
    [[nodiscard]] bool checkClient(double now, HubClient& client, bool isTurn);
    [[nodiscard]] Verdict checkConnect(double now, HubClient& client, ClientCheck& check);
    [[nodiscard]] Verdict checkFailedDial(HubClient& client, bool isComing, ClientCheck& check);
    [[nodiscard]] Verdict checkHealth(double now, HubClient& client, ClientCheck& check);
    [[nodiscard]] bool decideFailure(HubClient& client, const ClientCheck& check);
    void abortStartFor(HubClient& client, const ClientCheck& check, const std::string& retryReason);

    SupervisorSession& m_session;
    const Parts m_parts;
};

} // namespace tivra_internal
