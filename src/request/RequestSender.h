#pragma once

#include <memory>

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// What a hub's watchlist may ask of the session when the hub was busy: send a request again. @thread user
class RequestSender {
public:
    virtual ~RequestSender() = default;

    /// Queues the request for one hub. True: the request was taken over. False: the caller still owns it.
    [[nodiscard]] virtual bool sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* hub,
                                         bool force, int src) = 0;
};

} // namespace tivra_internal
