#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace tivra_internal {

class HubClient;

/// What an XrefConnector asks of its session. @thread master
class XrefSession {
public:
    virtual ~XrefSession() = default;

    /// The session stops or changes to other hubs: nobody reports any more what becomes of a hub.
    [[nodiscard]] virtual bool isLeavingItsHubs() const = 0;
    /// The seconds after which every hub must have been connected or given up.
    [[nodiscard]] virtual double xrefWaitLimit() const = 0;
    /// Makes the client of the hub at a port. Empty when that is not possible, which fails the attempt; null
    /// when the session takes no further hub.
    [[nodiscard]] virtual std::optional<HubClient*> createXrefHub(uint16_t port) = 0;
    /// A hub that failed in an earlier attempt and was retired comes back into the session's tables.
    virtual void bringBackXrefHub(HubClient& client) = 0;
    /// Its thread still looks after the hub, be it in the session or not.
    [[nodiscard]] virtual bool isHubServed(const HubClient& client) = 0;
    /// Gives those of `hubs` that wait for one their read handlers, then calls `mark` for each that has one.
    /// No hub becomes ready meanwhile.
    virtual void serveXrefHubs(const std::vector<HubClient*>& hubs,
                               const std::function<void(HubClient&)>& mark) = 0;
    /// The hub failed and leaves the session.
    virtual void removeXrefHub(HubClient& client) = 0;
    /// A source was granted before the hub at this port was connected, which it is now.
    virtual void enterGrantedRoute(int source, uint16_t port) = 0;
};

} // namespace tivra_internal
