#pragma once

namespace tivra_internal {

class HostConfigImpl;
struct HostPair;

/// What FirstHubs ask of their session. @thread first user
class FirstHubSession {
public:
    virtual ~FirstHubSession() = default;

    /// The host of a configured pair, null when there is none.
    [[nodiscard]] virtual HostConfigImpl* configuredHost(const HostPair& pair) = 0;
    /// The session has a hub at that host.
    [[nodiscard]] virtual bool hasHubAt(const HostConfigImpl& host) = 0;
    /// Makes a first hub. False when the session can take no further hub.
    [[nodiscard]] virtual bool createFirstHub(HostConfigImpl& host) = 0;
};

} // namespace tivra_internal
