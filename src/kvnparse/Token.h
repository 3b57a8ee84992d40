#pragma once

#include <tp/chash.h>

#include <cstdint>

namespace KVNAPI {

/// A field definition: number, name, type and flags. Owned by the DataMap that it is registered in; two
/// tokens are the same field exactly when they are the same object.
class Token {
public:
    enum Storage : unsigned { TY_INT = 0, TY_DOUBLE = 1, TY_STRING = 2 };

    Token() noexcept : storage(TY_INT), priceNormalize(0), passthrough(0), hidden(0) {}
    Token(const Token&) = default;
    Token& operator=(const Token&) = default;
    virtual ~Token() = default;

    std::int32_t kvnid = 0;      ///< number on the wire, 0 until set
    unsigned storage : 2;        ///< one of Storage: which member of a TVPair's union holds the value
    unsigned priceNormalize : 1; ///< a price to be normalised by the message's denominator; TY_DOUBLE only
    unsigned passthrough : 1;
    unsigned hidden : 1;
    char sid[12] = {};          ///< decimal text of `kvnid`
    const char* name = "";      ///< lives in the map once the token is registered
    tp::chash_node node;        ///< link in the map's index by number
    std::int32_t serialId = -1; ///< dense index in the map, -1 until assigned
};

} // namespace KVNAPI
