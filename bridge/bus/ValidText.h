#pragma once

#include <string>
#include <string_view>

namespace tivra_bus {

/// Whether it has no byte above 0x7f: nothing else has to be looked at then.
[[nodiscard]] bool isAscii(std::string_view bytes);
/// As the text of it would be read from JSON, in which bytes that aren't UTF-8 are U+FFFD.
[[nodiscard]] std::string validText(std::string_view bytes);

} // namespace tivra_bus
