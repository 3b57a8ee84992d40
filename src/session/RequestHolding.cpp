// Requests whose hub has no room in its queue wait at the session, and those for other hubs pass them.
#include "session/SessionImpl.h"

#include <tp/Clock.h>

#include "hub/HubClient.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr double kSecondsOfBackOff = 1.0;

} // namespace

/// What a hub that is away makes wait must not shut out requests for the others, so up to the last limit only
/// its own sources are refused.
bool SessionImpl::isRequestQueueFull(int source, std::size_t limit) const {
    if (requestQueue.size() >= limit || m_held.size() >= 2 * limit)
        return true;
    return m_held.size() >= limit && m_held.isHoldingSource(source);
}

/// Queues the request for one hub, unless others for that hub are still held: those go first.
bool SessionImpl::sendInOrder(std::unique_ptr<RequestInternal>& request, HubClient* hub) {
    if (hub != m_releasingFor) {
        tp::MutexLock lock(m_request_mutex);
        if (m_held.isHolding(hub)) {
            request->setHUB(hub);
            return false;
        }
    }
    return sendToHub(request, hub, false, 0);
}

void SessionImpl::holdRequest(std::unique_ptr<RequestInternal> request) {
    HubClient* const hub = request->getHUB();
    tp::MutexLock lock(m_request_mutex);
    m_held.hold(hub, std::move(request), tp::Clock::monotonic());
}

/// Tries the hubs that have refused requests again, each of them once a second.
void SessionImpl::releaseHeldRequests(unsigned mostOfAHub) {
    std::vector<HubClient*> hubs;
    {
        tp::MutexLock lock(m_request_mutex);
        hubs = m_held.hubsToTry(tp::Clock::monotonic(), kSecondsOfBackOff);
    }
    for (HubClient* hub : hubs) {
        for (unsigned budget = mostOfAHub; budget > 0 && releaseFirstHeld(hub); --budget) {
        }
    }
}

/// False when nothing more can be released for the hub now.
bool SessionImpl::releaseFirstHeld(HubClient* hub) {
    tp::MutexLock lock(m_request_mutex);
    std::unique_ptr<RequestInternal> request = m_held.takeFirst(hub);
    lock.unlock();
    if (request == nullptr)
        return false;
    if (hub->m_retired) {
        takeBackRequest(std::move(request), hub);
        return true;
    }
    // Another hub may serve what was for one hub by now, but a copy is for this one.
    m_releasingFor = hub;
    const bool isCopy = request->reach == RequestInternal::Reach::CopyOfSeveral;
    const bool isTaken = isCopy ? sendInOrder(request, hub) : routeRequestToHub(request);
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

} // namespace tivra_internal
