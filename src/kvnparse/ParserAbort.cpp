#include "kvnparse/ParserAbort.h"

#include "kvnparse/NumericText.h"

#include <tp/maskPasswords.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

namespace KVNAPI {

namespace {

constexpr std::size_t kReasonMax = 4096;
/// The least room that a terminated byte in hexadecimal form needs.
constexpr std::size_t kDumpMin = 8;

void describeByte(char byte, char* out, std::size_t size) {
    if (byte >= 0x20 && byte <= 0x7E)
        std::snprintf(out, size, "'%c'", byte);
    else
        std::snprintf(out, size, "0x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
}

} // namespace

void parserAbortFunc(bufref frame, const char* position, const char* format, ...) {
    char reason[kReasonMax];
    va_list args;
    va_start(args, format);
    std::vsnprintf(reason, sizeof reason, format, args);
    va_end(args);

    char found[16] = "end";
    if (position < frame.end())
        describeByte(*position, found, sizeof found);

    const std::span<char> text = tp::te_fill();
    if (text.empty())
        return;
    const int written = std::snprintf(text.data(), text.size(), "Parser error around pos %d(%s): %s\n",
                                      static_cast<int>(position - frame.buf), found, reason);
    const std::size_t used = std::min(static_cast<std::size_t>(std::max(written, 0)), text.size() - 1);
    if (text.size() - used >= kDumpMin)
        hexifyStr(bufref(text.data() + used, text.size() - used), frame);
    // A hub may send the login back.
    text[tp::maskPasswords(text.data(), std::strlen(text.data()))] = '\0';
}

} // namespace KVNAPI
