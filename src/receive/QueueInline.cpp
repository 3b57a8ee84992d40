// Delivery by the thread that reads: no hand-over, and no second thread to wake.
#include "receive/Queue.h"

#include "receive/QueueWaker.h"
#include "receive/RoundLimit.h"

namespace tivra_internal {

// Frames that the consumer hasn't taken yet come first, so only an empty ring gives the turn to the reader. A
// consumer that isn't there yet, or not any more, leaves its frames where they are.
void Queue::beginInlineRead() {
    if (!m_isInline || !isEmpty())
        return;
    tp::MutexLock lock(m_write_mutex);
    m_deliversRead.store(m_waker != nullptr, std::memory_order_relaxed);
}

void Queue::endInlineRead() {
    if (!m_deliversRead.load(std::memory_order_relaxed))
        return;
    deliverRead();
    m_deliversRead.store(false, std::memory_order_relaxed);
    if (!isEmpty())
        wakeConsumer();
}

// What slow callbacks leave is the consumer's, so that the thread goes on to its other hubs and its timers.
void Queue::deliverRead() {
    tp::MutexLock lock(m_reset_mutex);
    if (m_queueReadHandler == nullptr)
        return;
    RoundLimit limit;
    while (!isEmpty() && m_interruptions.load(std::memory_order_relaxed) == 0) {
        popOne();
        if (limit.isReached())
            break;
    }
    announceRoom();
}

bool Queue::calcStats(double curtime) {
    const bool comesIn = m_stats.calcStats(curtime);
    const bool goesOut = m_isInline && m_stats.calcStatsOut(curtime);
    return comesIn || goesOut;
}

void Queue::wakeConsumer() {
    std::shared_ptr<QueueWaker> sleeper;
    {
        tp::MutexLock lock(m_write_mutex);
        if (m_waker != nullptr && m_waker->isIdle())
            sleeper = m_waker;
    }
    if (sleeper != nullptr)
        sleeper->wake();
}

} // namespace tivra_internal
