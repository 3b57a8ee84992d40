#pragma once

#include <api/Utf8.h>

#include <string>
#include <string_view>

namespace tivra_python {

/// The text, or `room` with its form in UTF-8 when it isn't ASCII.
[[nodiscard]] inline std::string_view utf8Of(std::string_view text, std::string& room) {
    unsigned char bits = 0;
    for (const char c : text)
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    if (bits < 0x80)
        return text;
    room = tivra_internal::validUtf8(text);
    return room;
}

} // namespace tivra_python
