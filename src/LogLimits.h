#pragma once

#include <cstddef>

namespace tivra_internal {

/// The longest text from a hub or the application that goes into a log line.
inline constexpr std::size_t kMaxLoggedText = 4096;

} // namespace tivra_internal
