#pragma once

#include <memory>

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// What a RequestQueue does with a request whose turn has come. @thread master, unless a line says
/// otherwise
class RequestTaker {
public:
    virtual ~RequestTaker() = default;

    /// True: the request has been disposed of. False: it must wait, for room at the hub that it names by
    /// then, or for any hub at all.
    [[nodiscard]] virtual bool routeRequestToHub(std::unique_ptr<RequestInternal>& request) = 0;
    /// A copy for one of several hubs: it goes there and nowhere else.
    [[nodiscard]] virtual bool sendCopy(std::unique_ptr<RequestInternal>& request, HubClient* hub) = 0;
    /// The hub has left the session before the request reached it. @thread any
    virtual void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* hub) = 0;
};

} // namespace tivra_internal
