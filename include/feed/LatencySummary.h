#pragma once

#include <chrono>
#include <cstdint>

namespace tivra {

/// How long something has taken, of all times that it was measured, to one percent; times beyond an
/// hour count as an hour. Everything is zero before the first.
struct LatencySummary {
    std::uint64_t count = 0;          ///< how often it was measured
    std::chrono::nanoseconds min{0};  ///< the shortest
    std::chrono::nanoseconds p50{0};  ///< half of them took no longer than this
    std::chrono::nanoseconds p90{0};  ///< 90 percent took no longer than this
    std::chrono::nanoseconds p99{0};  ///< 99 percent took no longer than this
    std::chrono::nanoseconds p999{0}; ///< 99.9 percent took no longer than this
    std::chrono::nanoseconds max{0};  ///< the longest
};

} // namespace tivra
