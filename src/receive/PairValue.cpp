#include "receive/PairValue.h"

#include <limits>

namespace tivra_internal {
namespace {

using KVNAPI::Token;

int64_t integerOfDouble(double value) noexcept {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (value != value)
        return 0;
    if (value >= kTwoTo63)
        return std::numeric_limits<int64_t>::max();
    if (value < -kTwoTo63)
        return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

int64_t integerOfText(const KVNAPI::bufref& text) noexcept {
    if (text.len == 0)
        return 0;
    const bool negative = text.buf[0] == '-';
    const bool hasSign = negative || text.buf[0] == '+';
    const uint64_t magnitude = KVNAPI::_atou64(text.buf + (hasSign ? 1 : 0), text.end()).i;
    return static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
}

} // namespace

int64_t integerOf(const KVNAPI::TVPair& pair) noexcept {
    switch (pair.token->storage) {
    case Token::TY_STRING:
        return integerOfText(pair.s);
    case Token::TY_DOUBLE:
        return integerOfDouble(pair.d);
    default:
        return pair.i;
    }
}

double doubleOf(const KVNAPI::TVPair& pair) noexcept {
    switch (pair.token->storage) {
    case Token::TY_STRING:
        return KVNAPI::_atod(pair.s.buf, pair.s.end()).d;
    case Token::TY_DOUBLE:
        return pair.d;
    default:
        return static_cast<double>(pair.i);
    }
}

std::string_view textOf(const KVNAPI::TVPair& pair, NumberText& room) noexcept {
    char* const start = room.data();
    const char* end = start;
    switch (pair.token->storage) {
    case Token::TY_STRING:
        return pair.s.view();
    case Token::TY_DOUBLE:
        end = KVNAPI::dtoa(start, pair.d);
        break;
    default:
        end = KVNAPI::i64toa(start, pair.i);
        break;
    }
    return {start, static_cast<std::size_t>(end - start)};
}

} // namespace tivra_internal
