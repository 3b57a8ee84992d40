#pragma once

#include "kvnparse/Token.h"
#include "kvnparse/bufref.h"

#include <cstdint>
#include <type_traits>

namespace KVNAPI {

/// A field and its value, the unit of a Message. The token's `storage` alone says which member of the union
/// holds the value. It owns nothing.
class TVPair {
public:
    TVPair() noexcept : token(nullptr), s() {}

    void set(const TVPair* from) noexcept { *this = *from; }
    void setS(Token* field, const char* text, long length) noexcept {
        token = field;
        s = bufref(text, length < 0 ? 0 : static_cast<bufref_len_t>(length));
    }
    void setB(Token* field, bufref text) noexcept {
        token = field;
        s = text;
    }
    void setI(Token* field, std::int64_t value) noexcept {
        token = field;
        i = value;
    }
    void setD(Token* field, double value) noexcept {
        token = field;
        d = value;
    }

    Token* token;
    union {
        std::int64_t i; ///< TY_INT
        double d;       ///< TY_DOUBLE
        bufref s;       ///< TY_STRING
    };
};

static_assert(std::is_trivially_copyable_v<TVPair> && std::is_trivially_destructible_v<TVPair>);

} // namespace KVNAPI
