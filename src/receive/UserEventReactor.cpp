#include "receive/UserEventReactor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "receive/RoundLimit.h"

namespace tivra_internal {

namespace {

constexpr uint32_t kAllFlags = ~0U;
/// Calls that a ready handler gets before the table is looked at again, which costs a good part of a short
/// message. Few enough that a queue which becomes ready meanwhile doesn't wait for long.
constexpr int kRounds = 16;

// Stands in an activity slot that was vacated. It is never destroyed: a reactor may outlive the end of
// main().
UserEventBase* dummy() {
    static UserEventBase* const s_dummy = new UserEventBase;
    return s_dummy;
}

uint32_t bits(short flags) noexcept {
    return static_cast<unsigned short>(flags);
}

} // namespace

UserEventReactor::UserEventReactor(int threadIndex)
    : m_qpoll_events(std::make_unique<QPoll::qpoll_ready[]>(maxEvents))
    , m_qpoll(std::make_unique<QPoll>(maxEvents))
    , index(threadIndex) {
    std::fill(std::begin(m_activity), std::end(m_activity), dummy());
}

UserEventReactor::~UserEventReactor() = default;

void UserEventReactor::begin() {
    m_curLoopTime = m_lastLoopTime = tp::Clock::now();
    while (m_mustExit.load(std::memory_order_acquire) == 0)
        mainLoop();
    if (m_inBurst != 0)
        doPostIO(m_curLoopTime);
    m_mustExit.store(0, std::memory_order_release);
}

void UserEventReactor::end() {
    m_mustExit.store(1, std::memory_order_release);
    m_qpoll->interrupt();
}

void UserEventReactor::mainLoop() {
    m_timers.pass(m_curLoopTime, m_lastLoopTime, [this] {
        if (m_inBurst == 0)
            doPreIO(m_curLoopTime);
    });
    m_lastLoopTime = m_curLoopTime;

    const int wait = tp::ReactorWait::milliseconds(m_inBurst != 0, m_timers.nextTimer() - m_curLoopTime);
    if (m_mustExit.load(std::memory_order_acquire) != 0)
        return;
    const int ready = doQPolls(wait);
    if (ready < 0)
        m_wait.handleFailure(wait);
    else if (ready == 0 && m_inBurst != 0)
        doPostIO(m_curLoopTime);
}

int UserEventReactor::doQPolls(int timeout) {
    const int ready = m_qpoll->qpoll_wait(m_qpoll_events.get(), maxEvents, timeout);
    m_curLoopTime = tp::Clock::now();
    if (ready < 1)
        return ready;
    m_qpoll_count.store(ready, std::memory_order_release);
    if (m_inBurst == 0)
        doPreIO(m_curLoopTime);
    serveRounds(ready);
    m_qpoll_count.store(0, std::memory_order_release);
    return 1;
}

/// Gives each ready handler one call, in the table's order, and then further ones in turn to those that have
/// more, as long as that holds up neither the timers nor the end of the loop.
void UserEventReactor::serveRounds(int ready) {
    RoundLimit limit;
    for (int i = 0; i < ready; ++i) {
        if (UserEventBase* const handler = pendingHandler(i))
            handler->readableEvent(m_curLoopTime);
    }
    bool isServed = true;
    for (int round = 1; round < kRounds && isServed; ++round) {
        isServed = false;
        for (int i = 0; i < ready; ++i) {
            UserEventBase* const handler = pendingHandler(i);
            if (handler == nullptr || !handler->isStillReadable())
                continue;
            if (m_mustExit.load(std::memory_order_relaxed) != 0 || limit.isReached())
                return;
            handler->readableEvent(m_curLoopTime);
            isServed = true;
        }
    }
}

/// The handler of a ready entry. Read when its turn comes: whoever unregisters a handler clears what is still
/// pending for it, and then there is none.
UserEventBase* UserEventReactor::pendingHandler(int i) const noexcept {
    const QPoll::qpoll_ready& entry = m_qpoll_events[static_cast<size_t>(i)];
    return entry.events.load(std::memory_order_acquire) != 0 ? entry.data.load(std::memory_order_relaxed)
                                                             : nullptr;
}

void UserEventReactor::doPreIO(double curtime) {
    m_inBurst = 1;
    tp::MutexLock lock(m_activity_mutex);
    for (int i = m_activityCount - 1; i >= 0; --i)
        m_activity[i]->preActivityEvent(curtime);
}

void UserEventReactor::doPostIO(double curtime) {
    m_inBurst = 0;
    tp::MutexLock lock(m_activity_mutex);
    for (int i = m_activityCount - 1; i >= 0; --i)
        m_activity[i]->postActivityEvent(curtime);
}

void UserEventReactor::regQueue(UserEventBase* event, Queue* queue) {
    tp::MutexLock lock(m_queue_mutex);
    if (event->m_pollPos != nullptr || m_queueCount >= maxEvents) {
        eprintf(EPF_CRIT, "regQueue: queue %p not registered: %s", static_cast<void*>(queue),
                event->m_pollPos != nullptr ? "the object has a queue" : "the reactor is full");
        return;
    }
    m_pollList[m_queueCount] = {queue, POLLHUP, 0};
    m_queues[m_queueCount] = event;
    event->m_pollPos = &m_pollList[m_queueCount];
    ++m_queueCount;
    addQPoll(event);
}

void UserEventReactor::unRegQueue(UserEventBase* event) {
    tp::MutexLock lock(m_queue_mutex);
    if (event->m_pollPos == nullptr)
        return;
    delQPoll(event);
    const auto slot = event->m_pollPos - m_pollList;
    const int last = --m_queueCount;
    if (slot != last) {
        m_pollList[slot] = m_pollList[last];
        m_queues[slot] = m_queues[last];
        m_queues[slot]->m_pollPos = &m_pollList[slot];
    }
    m_pollList[last] = {nullptr, 0, 0};
    m_queues[last] = nullptr;
    event->m_pollPos = nullptr;
}

void UserEventReactor::watchReads(UserEventBase* event) {
    tp::MutexLock lock(m_queue_mutex);
    if (event->m_pollPos == nullptr || (event->m_pollPos->events & POLLIN) != 0)
        return;
    event->m_pollPos->events = static_cast<short>(event->m_pollPos->events | POLLIN);
    modQPoll(event);
}

void UserEventReactor::unWatchReads(UserEventBase* event) {
    tp::MutexLock lock(m_queue_mutex);
    if (event->m_pollPos == nullptr || (event->m_pollPos->events & POLLIN) == 0)
        return;
    event->m_pollPos->events = static_cast<short>(event->m_pollPos->events & ~POLLIN);
    event->m_pollPos->revents = static_cast<short>(event->m_pollPos->revents & ~POLLIN);
    modQPoll(event);
    clearflagsQPoll(event, POLLIN);
}

void UserEventReactor::regActivity(UserEventBase* event) {
    tp::MutexLock lock(m_activity_mutex);
    if (m_activityCount >= maxEvents) {
        eprintf(EPF_CRIT, "regActivity: not registered: the reactor is full");
        return;
    }
    m_activity[m_activityCount++] = event;
}

void UserEventReactor::unRegActivity(UserEventBase* event) {
    tp::MutexLock lock(m_activity_mutex);
    UserEventBase** const end = m_activity + m_activityCount;
    UserEventBase** const slot = std::find(m_activity, end, event);
    if (slot == end)
        return;
    --m_activityCount;
    *slot = m_activity[m_activityCount];
    m_activity[m_activityCount] = dummy();
}

void UserEventReactor::addQPoll(UserEventBase* event) {
    const QPoll::qpoll_event wanted{bits(event->m_pollPos->events), event};
    if (m_qpoll->qpoll_ctl(QPoll::QPOLL_CTL_ADD, event->m_pollPos->q, &wanted) != 0)
        eprintf(EPF_CRIT, "Error addQPoll %p:%s", static_cast<void*>(event->m_pollPos->q),
                std::strerror(errno));
}

void UserEventReactor::modQPoll(UserEventBase* event) {
    const QPoll::qpoll_event wanted{bits(event->m_pollPos->events), event};
    if (m_qpoll->qpoll_ctl(QPoll::QPOLL_CTL_MOD, event->m_pollPos->q, &wanted) != 0)
        eprintf(EPF_CRIT, "Error modQPoll %p:%s", static_cast<void*>(event->m_pollPos->q),
                std::strerror(errno));
}

void UserEventReactor::delQPoll(UserEventBase* event) {
    const int ret = m_qpoll->qpoll_ctl(QPoll::QPOLL_CTL_DEL, event->m_pollPos->q, nullptr);
    if (ret != 0)
        eprintf(EPF_CRIT, "Error delQPoll: ret=%d", ret);
    clearflagsQPoll(event, kAllFlags);
}

void UserEventReactor::clearflagsQPoll(const UserEventBase* event, uint32_t flags) {
    const int count = m_qpoll_count.load(std::memory_order_acquire);
    for (int i = 0; i < count; ++i) {
        QPoll::qpoll_ready& entry = m_qpoll_events[static_cast<size_t>(i)];
        if (entry.data.load(std::memory_order_relaxed) == event) {
            entry.events.fetch_and(~flags, std::memory_order_acq_rel);
            return;
        }
    }
}

} // namespace tivra_internal
