#include "common/Printable.h"

#include <fmt/format.h>

namespace tivra_tools {

namespace {

std::string shown(std::string_view text, bool keepsLines) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if ((c >= 0x20 && c <= 0x7e) || (keepsLines && c == '\n'))
            result += c;
        else
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return result;
}

} // namespace

std::string printable(std::string_view text) {
    return shown(text, false);
}

std::string printableLines(std::string_view text) {
    return shown(text, true);
}

} // namespace tivra_tools
