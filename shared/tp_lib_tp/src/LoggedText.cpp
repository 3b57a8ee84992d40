#include "LoggedText.h"

#include <tp/maskPasswords.h>

#include <algorithm>

namespace tp {

namespace {

bool isPrintable(char c) noexcept {
    return c >= 0x20 && c <= 0x7e;
}

} // namespace

bool makeLoggable(BoundedText& text, std::size_t from) noexcept {
    char* const begin = text.tail(from);
    const std::size_t length = maskPasswords(begin, text.length() - from);
    const auto others = static_cast<std::size_t>(
        std::count_if(begin, begin + length, [](char c) { return !isPrintable(c); }));
    const std::size_t grown = length + 3 * others;
    text.cutTo(from + length);
    if (others == 0)
        return true;
    if (!text.growBy(grown - length))
        return false;
    // From the end, since the text grows into itself.
    char* to = begin + grown;
    for (const char* at = begin + length; at != begin;) {
        const char c = *--at;
        if (isPrintable(c)) {
            *--to = c;
            continue;
        }
        constexpr const char* digits = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        *--to = digits[byte % 16];
        *--to = digits[byte / 16];
        *--to = 'x';
        *--to = '\\';
    }
    return true;
}

} // namespace tp
