#include "kvnparse/DataMapTools.h"

#include "kvnparse/DataMap.h"

#include <tp/te_error.h>

#include <cstdint>
#include <limits>

namespace KVNAPI {

namespace {

/// Reads an optional sign and digits into `out`, cut to the range of an int. True when the text ends there
/// and the number is 1 or more.
bool readPositive(const char* text, int& out) noexcept {
    constexpr std::int64_t LIMIT = std::numeric_limits<int>::max();
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    std::int64_t value = 0;
    bool fits = true;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + (*text - '0');
        if (value > LIMIT) {
            value = LIMIT;
            fits = false;
        }
    }
    out = static_cast<int>(negative ? -value : value);
    return fits && out >= 1 && *text == '\0';
}

} // namespace

int DataMapTools::parseId(const char* text, DataMap*, Exchange*, int& out) {
    if (readPositive(text, out))
        return 0;
    tp::te_error("Token ID '%s' out of range.", text);
    return -1;
}

int DataMapTools::parseToken(const char* text, DataMap* map, Exchange*, int& out) {
    const Token* const token = map->lookupTokenViaName(text);
    if (token == nullptr) {
        tp::te_error("Token name '%s' is unknown.", text);
        return -1;
    }
    out = token->kvnid;
    return 0;
}

int DataMapTools::parsePerm(const char* text, DataMap* map, Exchange*& out) {
    int id = 0;
    // A map may refuse a number that is in range: it takes only so many.
    out = readPositive(text, id) ? map->lookupExchange(id) : nullptr;
    if (out != nullptr)
        return 0;
    tp::te_error("Permission '%s' out of range.", text);
    return -1;
}

int DataMapTools::parseExch(const char* text, DataMap* map, Exchange*& out) {
    out = map->lookupLegacyExchange(text);
    if (out != nullptr)
        return 0;
    tp::te_error("Exchange ID '%s' out of range.", text);
    return -1;
}

} // namespace KVNAPI
