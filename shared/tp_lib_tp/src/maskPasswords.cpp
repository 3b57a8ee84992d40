#include <tp/maskPasswords.h>

#include <string_view>

namespace tp {

namespace {

constexpr std::string_view kPasswordToken = "5029";
/// A message shows a token that its dictionary doesn't know, as the password's, as two pairs: number, value.
constexpr std::string_view kUnknownValue = "|45029=";

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool endsValue(char c) noexcept {
    return c == '|' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

/// Whether the digits at a place are a token number of their own; leading zeros don't change it.
bool isWholeNumber(std::string_view text, std::size_t at) noexcept {
    while (at > 0 && text[at - 1] == '0')
        --at;
    return at == 0 || !isDigit(text[at - 1]);
}

/// Where the value of a pair begins behind its token number; npos when it is no pair.
std::size_t valueAfter(std::string_view text, std::size_t at) noexcept {
    if (text.compare(at, kUnknownValue.size(), kUnknownValue) == 0)
        return at + kUnknownValue.size();
    while (at < text.size() && text[at] == ' ')
        ++at;
    return at < text.size() && text[at] == '=' ? at + 1 : std::string_view::npos;
}

} // namespace

std::size_t maskPasswords(char* text, std::size_t length) noexcept {
    const std::string_view whole(text, length);
    std::size_t from = 0;
    std::size_t kept = 0; // what has been written of the masked text
    const auto keep = [&](std::size_t to) {
        for (; from < to; ++from)
            text[kept++] = text[from];
    };
    for (std::size_t at = 0; (at = whole.find(kPasswordToken, at)) != std::string_view::npos;) {
        const bool isToken = isWholeNumber(whole, at);
        at += kPasswordToken.size();
        const std::size_t value = isToken ? valueAfter(whole, at) : std::string_view::npos;
        if (value == std::string_view::npos)
            continue;
        std::size_t end = value;
        while (end < length && !endsValue(text[end]))
            ++end;
        at = end;
        if (end == value)
            continue;
        keep(value);
        text[kept++] = '*';
        from = end;
    }
    if (from == kept)
        return length;
    keep(length);
    return kept;
}

} // namespace tp
