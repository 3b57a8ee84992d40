#include "Frame.h"

#include <fmt/format.h>

namespace tivra_wire {

namespace {

bool isPrintable(char byte) {
    return byte >= 0x20 && byte <= 0x7e;
}

} // namespace

std::string byteText(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return isPrintable(byte) ? fmt::format("0x{:02x} '{}'", code, byte) : fmt::format("0x{:02x}", code);
}

std::string printable(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        if (isPrintable(byte) && byte != '\\')
            text += byte;
        else
            text += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
    }
    return text;
}

} // namespace tivra_wire
