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

} // namespace tivra_internal
