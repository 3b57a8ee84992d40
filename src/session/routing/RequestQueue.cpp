#include "session/routing/RequestQueue.h"

#include <utility>
#include <vector>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/RequestFrame.h"
#include "request/CommandClasses.h"
#include "request/PrintableTag.h"
#include "request/RequestImpl.h"
#include "request/RequestInternal.h"
#include "request/RequestLength.h"
#include "request/TagSource.h"
#include "request/Watchlist.h"
#include "session/routing/RequestTaker.h"
#include "session/routing/ResponseBook.h"

namespace tivra_internal {
namespace {

constexpr double kSecondsOfBackOff = 1.0;

} // namespace

RequestQueue::RequestQueue(Watchlist& list, ResponseBook& responses, TagSource& tags,
                           std::function<void()> wake)
    : watchlist(list), m_responses(responses), m_tags(tags), m_wake(std::move(wake)) {}

RequestQueue::~RequestQueue() = default;

int64_t RequestQueue::accept(RequestImpl& builder, const Limits& limits) {
    auto request = std::make_unique<RequestInternal>(&builder);
    if (!request->isCommandSet()) {
        eprintf(EPF_WARN, "Invalid Request: no command set");
        request->setNullCmd();
    }
    tp::MutexLock lock(m_request_mutex);
    const bool listFull = limits.listed && watchlist.size() >= limits.maxList;
    // An application must always be able to unsubscribe its way out of a full list.
    const bool isUnsubscribe = request->isCommandSet() && isUnsubscribeCommand(request->getCommand());
    const bool refusedByList = listFull && !isUnsubscribe;
    if (refusedByList || isFull(request->getSrcid(), limits.maxQueue)) {
        const int64_t tag = builder.hasGeneratedTag() ? builder.getGeneratedTag() : 0;
        eprintf(EPF_WARN, "send() failed for tag %lld: %s is full", printable(tag),
                listFull ? "watchlist" : "requestQueue");
        return 0;
    }
    const bool hadTag = builder.hasGeneratedTag();
    const int64_t tag = hadTag ? builder.getGeneratedTag() : m_tags.getNextTag();
    request->setTag(tag);
    // The list writes an unsubscribe anew, from the subscription: only that text has to fit.
    if (limits.listed && isUnsubscribe)
        watchlist.add(tag, *request);
    if (longestText(*request) > kMaxRequestText) {
        eprintf(EPF_WARN, "send() failed for tag %lld: request is too long", printable(tag));
        return 0;
    }
    builder.consumeGeneratedTag();
    eprintf(EPF_DBUG, "send: request with tag=%lld queued", printable(tag));
    if (limits.listed && request->isCommandSet() && !isUnsubscribe)
        watchlist.add(tag, *request);
    requestQueue.push_back(std::move(request));
    lock.unlock();
    wake();
    return tag;
}

void RequestQueue::serve(unsigned numReqs, RequestTaker& taker) {
    releaseHeld(numReqs, taker);
    const double now = tp::Clock::monotonic();
    if (isHubQueueFull && now >= lastQFullCheckTime && now - lastQFullCheckTime < kSecondsOfBackOff)
        return;
    lastQFullCheckTime = now;
    tp::MutexLock lock(m_request_mutex);
    for (; numReqs > 0 && !requestQueue.empty(); --numReqs) {
        // Routed outside the lock, so that a slow decision does not hold up the application's `send`.
        std::unique_ptr<RequestInternal> head = std::move(requestQueue.front());
        requestQueue.pop_front();
        lock.unlock();
        const bool isTaken = taker.routeRequestToHub(head);
        HubClient* const refusing = isTaken ? nullptr : head->getHUB();
        isHubQueueFull = !isTaken && refusing == nullptr;
        lock.lock();
        if (isHubQueueFull) {
            requestQueue.push_front(std::move(head));
            return;
        }
        if (refusing != nullptr)
            m_held.hold(refusing, std::move(head), now);
    }
}

/// What a hub that is away makes wait must not shut out requests for the others, so up to the last limit only
/// its own sources are refused.
bool RequestQueue::isFull(int source, std::size_t limit) const {
    if (requestQueue.size() >= limit || m_held.size() >= 2 * limit)
        return true;
    return m_held.size() >= limit && m_held.isHoldingSource(source);
}

bool RequestQueue::isHolding(HubClient* hub) {
    if (hub == m_releasingFor)
        return false;
    tp::MutexLock lock(m_request_mutex);
    return m_held.isHolding(hub);
}

void RequestQueue::hold(std::unique_ptr<RequestInternal> request) {
    HubClient* const hub = request->getHUB();
    tp::MutexLock lock(m_request_mutex);
    m_held.hold(hub, std::move(request), tp::Clock::monotonic());
}

void RequestQueue::append(std::unique_ptr<RequestInternal> request) {
    {
        tp::MutexLock lock(m_request_mutex);
        requestQueue.push_back(std::move(request));
    }
    wake();
}

void RequestQueue::prepend(Requests requests) {
    tp::MutexLock lock(m_request_mutex);
    while (!requests.empty()) {
        requestQueue.push_front(std::move(requests.back()));
        requests.pop_back();
    }
}

std::size_t RequestQueue::size() {
    tp::MutexLock lock(m_request_mutex);
    return requestQueue.size();
}

/// Tries the hubs that have refused requests again, each of them once a second.
void RequestQueue::releaseHeld(unsigned mostOfAHub, RequestTaker& taker) {
    std::vector<HubClient*> hubs;
    {
        tp::MutexLock lock(m_request_mutex);
        hubs = m_held.hubsToTry(tp::Clock::monotonic(), kSecondsOfBackOff);
    }
    for (HubClient* hub : hubs) {
        for (unsigned budget = mostOfAHub; budget > 0 && releaseFirstHeld(hub, taker); --budget) {
        }
    }
}

/// False when nothing more can be released for the hub now.
bool RequestQueue::releaseFirstHeld(HubClient* hub, RequestTaker& taker) {
    tp::MutexLock lock(m_request_mutex);
    std::unique_ptr<RequestInternal> request = m_held.takeFirst(hub);
    lock.unlock();
    if (request == nullptr)
        return false;
    if (hub->life().hasLeft()) {
        taker.takeBackRequest(std::move(request), hub);
        return true;
    }
    // Another hub may serve what was for one hub by now, but a copy is for this one.
    m_releasingFor = hub;
    const bool isCopy = request->reach == RequestInternal::Reach::CopyOfSeveral;
    const bool isTaken = isCopy ? taker.sendCopy(request, hub) : taker.routeRequestToHub(request);
    m_releasingFor = nullptr;
    if (isTaken)
        return true;
    const double now = tp::Clock::monotonic();
    HubClient* const refusing = request->getHUB();
    lock.lock();
    if (refusing != nullptr && refusing != hub) {
        m_held.hold(refusing, std::move(request), now);
        return true;
    }
    m_held.putBack(hub, std::move(request), now);
    return false;
}

void RequestQueue::requeue(bool listed, bool endsLost, bool isStop) {
    tp::MutexLock lock(m_request_mutex);
    discard(listed, endsLost, isStop);
    // What the application has unsubscribed must not come back, though hubs have not been told of it, or have
    // yet to finish what they had been asked for.
    watchlist.forgetUnsubscribed();
    if (watchlist.size() == 0)
        return;
    watchlist.removeAllHubs();
    int64_t tag = 0;
    while (std::unique_ptr<RequestInternal> request = watchlist.getNextRequest(tag)) {
        tag = request->getTag();
        watchlist.setExpectedResponses(tag, 0);
        request->outstandingResponses = 0;
        request->isRepeated = !m_responses.isUnanswered(tag);
        requestQueue.push_back(std::move(request));
    }
    eprintf(EPF_INFO, "%zu watchlist requests placed on request queue", requestQueue.size());
}

void RequestQueue::discard(bool listed, bool endsLost, bool isStop) {
    for (std::unique_ptr<RequestInternal>& held : m_held.takeAll())
        requestQueue.push_back(std::move(held));
    eprintf(listed ? EPF_DBUG : EPF_INFO, "shutdown: About to discard %zu requests from request Queue",
            requestQueue.size());
    for (const auto& request : requestQueue) {
        eprintf(EPF_DBUG, "shutdown: Discarding request with tag=%lld",
                static_cast<long long>(request->getTag()));
        if (endsLost && (!isStop || watchlist.contains(request->getTag())))
            m_responses.noteUnsent(*request);
    }
    requestQueue.clear();
}

void RequestQueue::reset() {
    isHubQueueFull = false;
    lastQFullCheckTime = 0.0;
}

} // namespace tivra_internal
