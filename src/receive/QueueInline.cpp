// Delivery by the thread that reads: no hand-over, and no second thread to wake.
#include "receive/Queue.h"

#include <cstddef>
#include <cstring>

#include "receive/QueueWaker.h"
#include "receive/RoundLimit.h"

namespace tivra_internal {

namespace {

/// How far in the ring a read begins again at its start, and the most unframed bytes that are moved for that.
constexpr std::ptrdiff_t kFarFromStart = 65536;
constexpr std::ptrdiff_t kFewBytes = 4096;

} // namespace

// The consumer stops after the frame that it is at, so that one thread does all the work again soon after
// both have. A consumer that isn't there yet, or not any more, leaves its frames where they are.
void Queue::beginInlineRead() {
    if (!m_isInline)
        return;
    tp::MutexLock lock(m_write_mutex);
    m_deliversRead.store(m_waker != nullptr, std::memory_order_seq_cst);
}

void Queue::endInlineRead() {
    if (!m_deliversRead.load(std::memory_order_relaxed))
        return;
    // A consumer that is still at its frame is slow, and isn't waited for.
    if (!m_consumerDelivers.load(std::memory_order_seq_cst))
        deliverRead();
    m_deliversRead.store(false, std::memory_order_relaxed);
    if (!isEmpty())
        wakeConsumer();
}

// Either this sees that the reader is about to deliver, or the reader sees this consumer, and doesn't wait.
bool Queue::consumerMayDeliver() {
    if (!m_isInline)
        return true;
    m_consumerDelivers.store(true, std::memory_order_seq_cst);
    if (!m_deliversRead.load(std::memory_order_seq_cst))
        return true;
    endConsuming();
    return false;
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
    if (isEmpty())
        rewind();
    announceRoom();
}

// Bytes that come to the same places again find them in the processor's cache.
void Queue::rewind() {
    char* const from = m_WriteQueue.load(std::memory_order_relaxed);
    const std::ptrdiff_t unframed = m_WriteStream - from;
    if (from - m_BufferStart < kFarFromStart || unframed < 0 || unframed > kFewBytes)
        return;
    std::memcpy(m_BufferStart, from, static_cast<std::size_t>(unframed));
    movePointersToStart();
    m_WriteStream += unframed;
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
