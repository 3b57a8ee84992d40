#pragma once

#include <cstdint>

#include <time.h>

namespace tivra_bench {

/// Of the monotonic clock, which all processes share.
[[nodiscard]] inline std::int64_t nowNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

[[nodiscard]] inline double millisecondsBetween(std::int64_t from, std::int64_t to) {
    return static_cast<double>(to - from) * 1e-6;
}

} // namespace tivra_bench
