#pragma once

namespace tivra_internal {

// The ticks of the session's threads, in seconds.
inline constexpr double kOneSecond = 1.0;
inline constexpr double kHundredMilliseconds = 0.1;
inline constexpr double kFiftyMilliseconds = 0.05;
inline constexpr double kTwentyFiveMilliseconds = 0.025;
inline constexpr double kTenMilliseconds = 0.01;

} // namespace tivra_internal
