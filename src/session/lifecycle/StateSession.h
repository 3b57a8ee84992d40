#pragma once

#include <string>
#include <vector>

namespace tivra_internal {

class HubClient;

/// What a StateMachine asks of its session. @thread first user
class StateSession {
public:
    virtual ~StateSession() = default;

    [[nodiscard]] virtual std::vector<HubClient*> hubs() const = 0;
    /// The start can't succeed any more.
    virtual void abortStart(const std::string& reason) = 0;
    /// All hubs are up: the first hubs that were only doors may go.
    virtual void markDroppedHubs() = 0;
};

} // namespace tivra_internal
