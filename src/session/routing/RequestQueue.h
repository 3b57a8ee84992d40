#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "session/routing/HeldRequests.h"

namespace tivra_internal {

class HubClient;
class RequestImpl;
class RequestInternal;
class RequestTaker;
class ResponseBook;
class TagSource;
class Watchlist;

/// The requests that wait at the session: those that the application has sent and nobody has routed yet, and
/// those that the full queues of their hubs have refused, which let others pass. @thread master, unless a
/// line says otherwise
class RequestQueue {
public:
    using Requests = std::deque<std::unique_ptr<RequestInternal>>;

    /// What the configuration says.
    struct Limits {
        bool listed = false; ///< the watchlist is on
        std::size_t maxQueue = 0;
        std::size_t maxList = 0;
    };

    /// The first three are borrowed. `wake` is called when there is something to serve, for whoever does.
    RequestQueue(Watchlist& watchlist, ResponseBook& responses, TagSource& tags,
                 std::function<void()> wake = {});
    ~RequestQueue();
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    /// The tag of the request, or 0 when it was refused. @thread any
    [[nodiscard]] int64_t accept(RequestImpl& builder, const Limits& limits) TP_EXCLUDES(m_request_mutex);
    /// Routes so many of those that wait, and as many for each hub that has refused some before.
    void serve(unsigned numReqs, RequestTaker& taker) TP_EXCLUDES(m_request_mutex);

    /// Others for that hub are held, and go first. Not so while these are being sent.
    [[nodiscard]] bool isHolding(HubClient* hub) TP_EXCLUDES(m_request_mutex);
    /// The hub that the request names has refused it.
    void hold(std::unique_ptr<RequestInternal> request) TP_EXCLUDES(m_request_mutex);
    /// It is routed after all that wait now. @thread any
    void append(std::unique_ptr<RequestInternal> request) TP_EXCLUDES(m_request_mutex);
    /// They are routed next, in their order.
    void prepend(Requests requests) TP_EXCLUDES(m_request_mutex);
    /// Some wait, and nothing keeps them from being routed now.
    [[nodiscard]] bool isServable() TP_EXCLUDES(m_request_mutex) { return !isHubQueueFull && size() > 0; }
    /// How many have yet to be routed. @thread any
    [[nodiscard]] std::size_t size() TP_EXCLUDES(m_request_mutex);

    /// All hubs go: what waits is lost, but every standing request of the watchlist is queued again with its
    /// tag. `endsLost`: the application hears of those that are lost. `isStop`: but not of all.
    void requeue(bool listed, bool endsLost, bool isStop) TP_EXCLUDES(m_request_mutex);
    void reset();

private:
    void wake() const {
        if (m_wake)
            m_wake();
    }
    [[nodiscard]] bool isFull(int source, std::size_t limit) const TP_REQUIRES(m_request_mutex);
    void discard(bool listed, bool endsLost, bool isStop) TP_REQUIRES(m_request_mutex);
    void releaseHeld(unsigned mostOfAHub, RequestTaker& taker) TP_EXCLUDES(m_request_mutex);
    [[nodiscard]] bool releaseFirstHeld(HubClient* hub, RequestTaker& taker) TP_EXCLUDES(m_request_mutex);

    Watchlist& watchlist;
    ResponseBook& m_responses;
    TagSource& m_tags;
    const std::function<void()> m_wake;

    tp::Mutex m_request_mutex{kLockSessionRequest};
    Requests requestQueue TP_GUARDED_BY(m_request_mutex);
    HeldRequests m_held TP_GUARDED_BY(m_request_mutex);

    bool isHubQueueFull = false;         ///< no hub could be found for the first request
    HubClient* m_releasingFor = nullptr; ///< the hub whose held requests are being sent
    double lastQFullCheckTime = 0.0;
};

} // namespace tivra_internal
