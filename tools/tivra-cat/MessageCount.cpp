#include "MessageCount.h"

#include <chrono>

namespace tivra_cat {

namespace {

std::int64_t steadyNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void increment(std::atomic<std::uint64_t>& counter) {
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

bool MessageCount::claim() {
    if (m_limit == 0)
        return true;
    const std::uint64_t before = m_claimed.fetch_add(1, std::memory_order_relaxed);
    if (before + 1 == m_limit)
        m_wakeup.notify();
    return before < m_limit;
}

void MessageCount::count(tivra::MessageEvent::Types type) {
    const std::int64_t now = steadyNanoseconds();
    std::int64_t none = 0;
    m_counters.firstNanoseconds.compare_exchange_strong(none, now, std::memory_order_relaxed);
    m_counters.lastNanoseconds.store(now, std::memory_order_relaxed);
    increment(m_counters.received);
    if (type == tivra::MessageEvent::UPDATE)
        increment(m_counters.updates);
    else if (type == tivra::MessageEvent::REFRESH)
        increment(m_counters.refreshes);
    else if (type == tivra::MessageEvent::IMAGE_PART)
        increment(m_counters.imageParts);
}

} // namespace tivra_cat
