#pragma once

#include <string>
#include <string_view>

namespace tivra_internal {

/// The regular expression in a split symbol, which stands in delimiters, with "~" for alternation. Empty,
/// with a log line, when the symbol is too short to hold one.
[[nodiscard]] std::string splitPatternOf(std::string_view symbol);

} // namespace tivra_internal
