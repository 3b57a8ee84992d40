#include "receive/QueuePoller.h"

#include <cerrno>
#include <cstring>

#include <tp/eprintf.h>

#include "receive/ServeTurn.h"

namespace tivra_internal {

namespace {

constexpr uint32_t kAllFlags = ~0U;
/// Calls that a ready handler gets before the table is looked at again, which costs a good part of a short
/// message. Few enough that a queue which becomes ready meanwhile doesn't wait for long. Among others they
/// come in one go while they are short: what belongs to one handler alone has left the processor's cache
/// since its last turn, and is fetched once for all of them.
constexpr int kCalls = 64;

QPoll::qpoll_event wantedOf(const QPoll::pollq& entry, UserEventBase* event) noexcept {
    return {static_cast<unsigned short>(entry.events), event};
}

} // namespace

QueuePoller::QueuePoller() : m_qpoll_events(std::make_unique<QPoll::qpoll_ready[]>(maxEvents)) {}

QueuePoller::~QueuePoller() = default;

void QueuePoller::reportRefusal(Queue* queue, bool hasQueue) {
    eprintf(EPF_CRIT, "regQueue: queue %p not registered: %s", static_cast<void*>(queue),
            hasQueue ? "the object has a queue" : "the reactor is full");
}

void QueuePoller::add(const Entry& entry, Event* event) {
    const QPoll::qpoll_event wanted = wantedOf(entry, event);
    if (m_qpoll.qpoll_ctl(QPoll::QPOLL_CTL_ADD, entry.q, &wanted) != 0)
        eprintf(EPF_CRIT, "Error addQPoll %p:%s", static_cast<void*>(entry.q), std::strerror(errno));
}

void QueuePoller::modify(const Entry& entry, Event* event) {
    const QPoll::qpoll_event wanted = wantedOf(entry, event);
    if (m_qpoll.qpoll_ctl(QPoll::QPOLL_CTL_MOD, entry.q, &wanted) != 0)
        eprintf(EPF_CRIT, "Error modQPoll %p:%s", static_cast<void*>(entry.q), std::strerror(errno));
}

void QueuePoller::remove(const Entry& entry, Event* event) {
    const int ret = m_qpoll.qpoll_ctl(QPoll::QPOLL_CTL_DEL, entry.q, nullptr);
    if (ret != 0)
        eprintf(EPF_CRIT, "Error delQPoll: ret=%d", ret);
    clearPending(event, kAllFlags);
}

void QueuePoller::clearPending(const Event* event, uint32_t flags) {
    const int count = m_qpoll_count.load(std::memory_order_acquire);
    for (int i = 0; i < count; ++i) {
        QPoll::qpoll_ready& entry = m_qpoll_events[static_cast<std::size_t>(i)];
        if (entry.data.load(std::memory_order_relaxed) == event) {
            entry.events.fetch_and(~flags, std::memory_order_acq_rel);
            return;
        }
    }
}

int QueuePoller::wait(Table& /*queues*/, int milliseconds) {
    const int ready = m_qpoll.qpoll_wait(m_qpoll_events.get(), maxEvents, milliseconds);
    if (ready > 0)
        m_qpoll_count.store(ready, std::memory_order_release);
    return ready;
}

void QueuePoller::serve(Table& /*queues*/, double curtime, const std::atomic<int>& mustExit) {
    serveRounds(m_qpoll_count.load(std::memory_order_relaxed), curtime, mustExit);
    m_qpoll_count.store(0, std::memory_order_release);
}

/// Gives each ready handler one call, in the table's order, and then those that have more a turn each, of
/// many calls while they are quick and of one when they are slow, as long as that holds up neither the timers
/// nor the end of the loop. The turns begin where they ended for want of time. One that is ready alone takes
/// as many calls at once.
void QueuePoller::serveRounds(int ready, double curtime, const std::atomic<int>& mustExit) {
    RoundLimit limit;
    if (ready == 1) {
        ServeTurn turn(ServeTurn::Alone, kCalls, limit, m_qpoll_events[0].events, mustExit);
        if (Event* const handler = pendingHandler(0))
            handler->readableTurn(curtime, turn);
        return;
    }
    for (int i = 0; i < ready; ++i) {
        if (Event* const handler = pendingHandler(i))
            handler->readableEvent(curtime);
    }
    limit.addUnasked(ready - 1);
    const unsigned first = m_dispatches++ % static_cast<unsigned>(ready);
    for (int k = 0; k < ready; ++k) {
        const int i = (static_cast<int>(first) + k) % ready;
        Event* const handler = pendingHandler(i);
        if (handler == nullptr || !handler->isStillReadable())
            continue;
        if (mustExit.load(std::memory_order_relaxed) != 0 || limit.isReached())
            return;
        ServeTurn turn(ServeTurn::AmongOthers, kCalls, limit,
                       m_qpoll_events[static_cast<std::size_t>(i)].events, mustExit);
        handler->readableTurn(curtime, turn);
    }
}

/// The handler of a ready entry. Read when its turn comes: whoever unregisters a handler clears what is still
/// pending for it, and then there is none.
UserEventBase* QueuePoller::pendingHandler(int i) const noexcept {
    const QPoll::qpoll_ready& entry = m_qpoll_events[static_cast<std::size_t>(i)];
    return entry.events.load(std::memory_order_acquire) != 0 ? entry.data.load(std::memory_order_relaxed)
                                                             : nullptr;
}

} // namespace tivra_internal
