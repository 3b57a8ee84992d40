#pragma once

#include <string_view>

namespace tivra_internal {

/// Why a text can't go to a hub as the value of a pair, in words for a log line; null when it can. There is
/// no escape in a request, so a separator would begin another pair of the caller's choice, and a control byte
/// may end the frame.
[[nodiscard]] const char* valueFault(std::string_view text) noexcept;

} // namespace tivra_internal
