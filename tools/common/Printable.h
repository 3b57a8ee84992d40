#pragma once

#include <string>
#include <string_view>

namespace tivra_tools {

/// A text as it may be shown on a terminal: each byte that isn't a printable ASCII character stands as \xNN.
[[nodiscard]] std::string printable(std::string_view text);
/// The same for a text of several lines.
[[nodiscard]] std::string printableLines(std::string_view text);

} // namespace tivra_tools
