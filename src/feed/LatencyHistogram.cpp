#include "feed/LatencyHistogram.h"

#include <algorithm>
#include <cmath>

namespace tivra_internal {

void LatencyHistogram::record(double seconds) noexcept {
    static_assert(stepOf(kLongest) + 1 == kStepCount);
    const auto length =
        static_cast<std::uint64_t>(std::clamp(seconds * 1e9, 1.0, static_cast<double>(kLongest)));
    m_counts[stepOf(length)].fetch_add(1, std::memory_order_relaxed);
    std::uint64_t shortest = m_shortest.load(std::memory_order_relaxed);
    while (length < shortest &&
           !m_shortest.compare_exchange_weak(shortest, length, std::memory_order_relaxed)) {
    }
    std::uint64_t longest = m_longest.load(std::memory_order_relaxed);
    while (length > longest && !m_longest.compare_exchange_weak(longest, length, std::memory_order_relaxed)) {
    }
}

tivra::LatencySummary LatencyHistogram::summaryOf(const std::vector<const LatencyHistogram*>& parts) {
    std::vector<std::uint64_t> counts(kStepCount);
    std::uint64_t shortest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t longest = 0;
    tivra::LatencySummary summary;
    for (const LatencyHistogram* part : parts) {
        for (std::size_t step = 0; step < counts.size(); ++step) {
            const std::uint64_t count = part->m_counts[step].load(std::memory_order_relaxed);
            counts[step] += count;
            summary.count += count;
        }
        shortest = std::min(shortest, part->m_shortest.load(std::memory_order_relaxed));
        longest = std::max(longest, part->m_longest.load(std::memory_order_relaxed));
    }
    if (summary.count == 0 || shortest > longest)
        return tivra::LatencySummary();
    const auto nanoseconds = [](std::uint64_t length) {
        return std::chrono::nanoseconds(static_cast<std::int64_t>(length));
    };
    const auto at = [&](double share) {
        const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(summary.count)));
        std::size_t step = 0;
        for (std::uint64_t seen = counts[0]; seen < wanted && step + 1 < counts.size();)
            seen += counts[++step];
        return nanoseconds(std::clamp(middleOf(step), shortest, longest));
    };
    summary.min = nanoseconds(shortest);
    summary.p50 = at(0.5);
    summary.p90 = at(0.9);
    summary.p99 = at(0.99);
    summary.p999 = at(0.999);
    summary.max = nanoseconds(longest);
    return summary;
}

} // namespace tivra_internal
