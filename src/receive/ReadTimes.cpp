#include "receive/ReadTimes.h"

namespace tivra_internal {

std::uint32_t ReadTimes::firstBehind(std::size_t length) const noexcept {
    std::uint32_t first = m_forgotten.load(std::memory_order_relaxed);
    while (first != m_known && distance(m_marks[first % kMarks].end) <= length)
        ++first;
    return first;
}

// A mark that was set after the batch had been looked at is of a later one. One that was set before may be,
// too: it lies behind the batch then, since nothing of the ring had been given back.
void ReadTimes::beginBatch(const char* begin, const char* end) noexcept {
    const std::uint32_t first = firstBehind(m_length);
    if (first != m_forgotten.load(std::memory_order_relaxed))
        m_drainedAt = m_marks[(first - 1) % kMarks].drained;
    m_begin = begin == m_ring + m_size ? m_ring : begin;
    m_length = distance(end);
    m_known = m_added.load(std::memory_order_acquire);
    m_forgotten.store(first, std::memory_order_release);
}

double ReadTimes::timeOf(const char* frame) const noexcept {
    const std::size_t place = distance(frame == m_ring + m_size ? m_ring : frame);
    std::uint32_t low = m_forgotten.load(std::memory_order_relaxed);
    if (low == m_known)
        return 0.0;
    // The first mark behind the frame; the last one where there were too many.
    std::uint32_t high = m_known - 1;
    while (low != high) {
        const std::uint32_t middle = low + (high - low) / 2;
        if (distance(m_marks[middle % kMarks].end) > place)
            high = middle;
        else
            low = middle + 1;
    }
    return m_marks[low % kMarks].time;
}

double ReadTimes::drainedUpTo(const char* place) const noexcept {
    const std::uint32_t first = firstBehind(distance(place));
    return first == m_forgotten.load(std::memory_order_relaxed) ? m_drainedAt
                                                                : m_marks[(first - 1) % kMarks].drained;
}

void ReadTimes::clear(const char* taken) noexcept {
    m_drainedAt = drainedUpTo(taken);
    m_begin = m_ring;
    m_length = 0;
    m_known = m_added.load(std::memory_order_relaxed);
    m_forgotten.store(m_known, std::memory_order_release);
}

} // namespace tivra_internal
