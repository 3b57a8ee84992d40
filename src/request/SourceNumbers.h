#pragma once

namespace tivra_internal {

/// From here on a source is a news source, which lives on several hubs at once.
inline constexpr int kFirstNewsSource = 4096;
/// The highest number that a source can have.
inline constexpr int kLastSource = 65535;

} // namespace tivra_internal
