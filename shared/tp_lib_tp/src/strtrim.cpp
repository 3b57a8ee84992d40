#include <tp/strtrim.h>

#include <cctype>
#include <cstring>

namespace tp {

namespace {

bool isSpace(char c) noexcept {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

char* strtrim(char* text) noexcept {
    const char* begin = text;
    while (isSpace(*begin))
        ++begin;
    std::size_t length = std::strlen(begin);
    while (length > 0 && isSpace(begin[length - 1]))
        --length;
    std::memmove(text, begin, length);
    text[length] = '\0';
    return text;
}

} // namespace tp
