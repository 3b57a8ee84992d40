#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <feed/LatencySummary.h>

namespace tivra_internal {

/// Durations by their length: each power of two in 64 steps, so that a figure is off by one percent at most,
/// whatever its size. Counting takes no lock and allocates nothing. @thread any
class LatencyHistogram {
public:
    /// One more. Less than a nanosecond counts as one, more than an hour as one hour.
    void record(double seconds) noexcept;
    [[nodiscard]] tivra::LatencySummary summary() const { return summaryOf({this}); }
    /// Of all of them together. What is recorded meanwhile may count or not.
    [[nodiscard]] static tivra::LatencySummary summaryOf(const std::vector<const LatencyHistogram*>& parts);

private:
    static constexpr unsigned kStepBits = 6;
    static constexpr std::uint64_t kSteps = std::uint64_t{1} << kStepBits;
    static constexpr std::uint64_t kLongest = 3600ULL * 1'000'000'000; ///< in nanoseconds
    static constexpr std::size_t kStepCount = 2345;                    ///< up to that of kLongest

    /// Lengths below 64 have a step each. From there on a step of the power of two above is twice as wide.
    [[nodiscard]] static constexpr std::size_t stepOf(std::uint64_t length) noexcept {
        if (length < kSteps)
            return static_cast<std::size_t>(length);
        const unsigned shift = static_cast<unsigned>(std::bit_width(length)) - kStepBits - 1;
        return static_cast<std::size_t>((shift << kStepBits) + (length >> shift));
    }
    /// What stands for the lengths of a step: the one in its middle.
    [[nodiscard]] static constexpr std::uint64_t middleOf(std::size_t step) noexcept {
        if (step < 2 * kSteps)
            return step;
        const std::size_t shift = (step >> kStepBits) - 1;
        const std::uint64_t first = (step - (shift << kStepBits)) << shift;
        return first + (std::uint64_t{1} << (shift - 1));
    }

    std::array<std::atomic<std::uint64_t>, kStepCount> m_counts{};
    std::atomic<std::uint64_t> m_shortest{std::numeric_limits<std::uint64_t>::max()};
    std::atomic<std::uint64_t> m_longest{0};
};

} // namespace tivra_internal
