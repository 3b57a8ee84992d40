#pragma once

#include <chrono>

#include <tp/Clock.h>

namespace tivra_internal {

/// Seconds since the Unix epoch as the standard library's time.
[[nodiscard]] inline std::chrono::system_clock::time_point toTimePoint(double seconds) {
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::duration<double>(seconds)));
}

[[nodiscard]] inline std::chrono::system_clock::time_point wallTime() {
    return toTimePoint(tp::Clock::now());
}

/// A time of the monotonic clock in seconds since the Unix epoch, as the wall clock shows it now: should it
/// have been set meanwhile, two of them still differ by what has passed between them.
[[nodiscard]] inline double onTheWall(double monotonic) {
    return tp::Clock::now() - (tp::Clock::monotonic() - monotonic);
}

} // namespace tivra_internal
