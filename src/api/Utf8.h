#pragma once

#include <string>
#include <string_view>

namespace tivra_internal {

/// The text with each byte that isn't part of a well-formed UTF-8 sequence replaced by U+FFFD, so that it may
/// stand in forms that allow nothing else. @thread any
[[nodiscard]] std::string validUtf8(std::string_view text);

} // namespace tivra_internal
