#pragma once

#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumericText.h"
#include "kvnparse/TVPair.h"
#include "kvnparse/Token.h"
#include "kvnparse/bufref.h"

#include <tp/te_error.h>

#include <cstring>

namespace KVNAPI {

// Pieces of encoded fields. Each writes at `out`, where there must be room, and returns the position behind.

inline char* putText(char* out, const char* text) noexcept {
    while (*text != '\0')
        *out++ = *text++;
    return out;
}

/// A field's name and the equals sign.
inline char* putStart(char* out, const char* name) noexcept {
    out = putText(out, name);
    *out++ = '=';
    return out;
}

inline char* putBytes(char* out, bufref bytes) noexcept {
    // An empty one may have no address.
    if (bytes.len != 0)
        std::memcpy(out, bytes.buf, bytes.len);
    return out + bytes.len;
}

/// How much longer than the text beside an id its digits can be: 11 bytes against 7.
inline constexpr bufref_len_t kLongIdExtra = 11 - (sizeof(Exchange::sid) - 1);

/// Whether the id is too long for the text beside it.
[[nodiscard]] inline bool isLongId(const Exchange& exchange) noexcept {
    return exchange.sid[0] == '\0';
}

/// The id of a source or permission.
inline char* putId(char* out, const Exchange& exchange) noexcept {
    return isLongId(exchange) ? i64toa(out, exchange.id) : putText(out, exchange.sid);
}

/// A pair's value, which may be a text: null when that and one more byte do not fit before `end`. The caller
/// has made sure that a number fits.
[[nodiscard]] inline char* putValue(char* out, const char* end, const TVPair& pair) noexcept {
    switch (pair.token->storage) {
    case Token::TY_INT:
        return i64toa(out, pair.i);
    case Token::TY_DOUBLE:
        return dtoa(out, pair.d);
    default:
        if (static_cast<bufref_len_t>(end - out) <= pair.s.len)
            return nullptr;
        return putBytes(out, pair.s);
    }
}

/// What encode does in every form, by the pieces of a form that it is given. `lead` bytes stay free in front
/// of the header fields, and `last` takes the place of the separator behind the last field.
template<class Form>
[[nodiscard]] int encodeFields(Form& form, bufref* out, const Message& message, std::size_t lead, char last) {
    const auto notEnoughSpace = [] {
        tp::te_seterror("Not enough space for message.");
        return -1;
    };
    const bufref_len_t room = form.headerRoom(message);
    if (out->len < room || out->len - room < message.symbol.len)
        return notEnoughSpace();
    char* const start = out->room() + lead;
    char* position = form.putHeader(start, message);
    for (int i = 0; i < message.pairCount(); ++i) {
        position = form.putPair(position, out->end(), *message.pair(i));
        if (position == nullptr)
            return notEnoughSpace();
    }
    const bool isEmpty = position == start;
    if (!isEmpty)
        position[-1] = last;
    out->len = isEmpty ? 0 : static_cast<bufref_len_t>(position - out->buf);
    return isEmpty ? 1 : 0;
}

} // namespace KVNAPI
