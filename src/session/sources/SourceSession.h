#pragma once

namespace tivra_internal {

class HubClient;

/// What a SourceRegistry asks of its session. @thread user
class SourceSession {
public:
    virtual ~SourceSession() = default;

    /// The default hub, null while there is none.
    [[nodiscard]] virtual HubClient* firstHub() const = 0;
    /// Asks the default hub where a source is served.
    virtual void askForHubOf(int source) = 0;
};

} // namespace tivra_internal
