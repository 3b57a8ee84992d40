#pragma once

#include <cstdint>
#include <memory>

namespace tivra_internal {

class HubClient;
class RequestInternal;
class RequestSender;
class Watchlist;

/// What becomes of the requests to a hub. @thread hub; every operation locks for itself.
class SessionRequests {
public:
    virtual ~SessionRequests() = default;

    [[nodiscard]] virtual Watchlist& getWatchlist() = 0;
    [[nodiscard]] virtual RequestSender& getRequestSender() = 0;
    /// A listed request is about to be written again after a reconnect: its answer is expected anew.
    virtual void noteReplay(const RequestInternal& request, HubClient* client) = 0;
    /// The request has been written to the hub: a lost connection takes its answer with it.
    virtual void noteWritten(int64_t tag, HubClient* client) = 0;
    /// The request can't be written, now or later: it ends without its hub's answer.
    virtual void loseRequest(int64_t tag, HubClient* client) = 0;
    /// The connection is gone: what has been written and not answered ends, unless a replay repeats it.
    virtual void endOutstanding(HubClient* client) = 0;
    /// Takes back a request that can't reach its hub, which isn't served any more: a request that expects
    /// this one answer is routed again, of a request to several hubs one answer fewer is expected. No mutex
    /// is held.
    virtual void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) = 0;
};

} // namespace tivra_internal
