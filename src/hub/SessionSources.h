#pragma once

#include <string>

namespace tivra_internal {

class HostConfigImpl;
class HubClient;

/// Which hub carries which source, as the hubs of a group say it. @thread hub; every operation locks for
/// itself.
class SessionSources {
public:
    virtual ~SessionSources() = default;

    /// A source that this hub itself carries: `srcClientMap` (first come stays) and `hubClientSrcMap`.
    virtual void addBoxSource(int src, HubClient* client) = 0;
    /// A source of the user. Enters it in `srcClientMap` with `entHub` (may be null) when it has no entry;
    /// when it had one, the user is entitled to it and a non-null client enters `entitledSrcClientMap`.
    /// Returns true when the source already had an entry.
    virtual bool addUserSource(int src, HubClient* entHub) = 0;
    /// `srcClientMap[src]` becomes this client.
    virtual void assignSource(int src, HubClient* client) = 0;
    struct PortCursor {
        int source = -1;   ///< the next source to ask about, -1 when none is left
        bool last = false; ///< no further source without a hub follows
    };
    /// The first source above `after` that no hub carries; news sources on the way go to `client`.
    [[nodiscard]] virtual PortCursor nextSourceWithoutHub(int after, HubClient* client) = 0;

    enum class HubLookup { Found, NoHostConfig, NoClient };
    /// `srcClientMap[src]` becomes the client of the host with this host info string.
    [[nodiscard]] virtual HubLookup assignSourceToHost(int src, const std::string& hostInfo) = 0;
    /// Makes a client for a host that a hub has named, with the parameters of `like`, unless one exists.
    /// `operation` names the asker in the log. False when there is a client already.
    virtual bool createHubForHost(const std::string& hostInfo, HostConfigImpl& like,
                                  const char* operation) = 0;
    virtual void addSplitExchange(int src, HubClient* client) = 0;
    virtual void addSplitSymbol(int src, const std::string& pattern, HubClient* client) = 0;
};

} // namespace tivra_internal
