#pragma once

#include <tp/Clock.h>

namespace tivra_internal {

/// Seconds since a monotonic time.
[[nodiscard]] inline double secondsSince(double time) {
    return tp::Clock::monotonic() - time;
}

/// A monotonic time for a log line: when it was by the wall clock. 0, for never, stays 0.
[[nodiscard]] inline double epochOf(double time) {
    return time == 0.0 ? 0.0 : tp::Clock::now() - secondsSince(time);
}

} // namespace tivra_internal
