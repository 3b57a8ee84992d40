#pragma once

#include <string>

namespace tivra_internal {

class HubClient;

/// What a Supervisor asks of its session. @thread hub
class SupervisorSession {
public:
    virtual ~SupervisorSession() = default;

    /// The hub has left the session, and its thread looks after it no more.
    virtual void stopServing(HubClient& client) = 0;
    /// A hub has failed. True when a start goes on without it, false when it needs it or has come to its end.
    [[nodiscard]] virtual bool startWithout(HubClient& client) = 0;
    /// The start can't succeed any more.
    virtual void abortStart(const std::string& reason) = 0;
};

} // namespace tivra_internal
