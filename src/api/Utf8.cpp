#include "api/Utf8.h"

#include <cstddef>

namespace tivra_internal {
namespace {

bool isBetween(unsigned char byte, unsigned low, unsigned high) {
    return byte >= low && byte <= high;
}

/// Bytes of the sequence that the text begins with, 0 when it is none. The second byte's range keeps out
/// overlong forms, surrogates and what lies above U+10FFFF.
std::size_t sequenceLength(std::string_view text) {
    const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = isBetween(first, 0xC2, 0xDF)   ? 2
                               : isBetween(first, 0xE0, 0xEF) ? 3
                               : isBetween(first, 0xF0, 0xF4) ? 4
                                                              : 0;
    if (length == 0 || text.size() < length)
        return 0;
    const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (!isBetween(at(1), low, high))
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (!isBetween(at(i), 0x80, 0xBF))
            return 0;
    return length;
}

} // namespace

std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length == 0)
            out += "\xEF\xBF\xBD";
        else
            out += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out;
}

} // namespace tivra_internal
