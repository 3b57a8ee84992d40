#pragma once

#include <array>
#include <string_view>

#include "kvnparse/Token.h"

namespace tivra_internal {

/// What a dictionary says a field's value means.
enum KVNType {
    KVN_STRING = 0,
    KVN_BOOL = 1,
    KVN_DATETIME = 2, ///< like all dates here, seconds since 1970-01-01 00:00 UTC
    KVN_FLOAT = 3,
    KVN_INTEGER = 4,
    KVN_DATE = 5,
    KVN_YEAR = 6,
    KVN_MONTHYEAR = 7
};

/// How a value is held in a pair; TOK_UNKNOWN is never stored.
enum TokenStorage : unsigned {
    TOK_INT = KVNAPI::Token::TY_INT,
    TOK_DOUBLE = KVNAPI::Token::TY_DOUBLE,
    TOK_STR = KVNAPI::Token::TY_STRING,
    TOK_UNKNOWN = 99
};

/// A type word of the dictionary, and what it stands for.
struct TypeWord {
    std::string_view word;
    KVNType type;
    TokenStorage storage;
};

inline constexpr std::array<TypeWord, 8> kTypeWords{{
    {"STRING", KVN_STRING, TOK_STR},
    {"BOOL", KVN_BOOL, TOK_INT},
    {"DATETIME", KVN_DATETIME, TOK_DOUBLE},
    {"FLOAT", KVN_FLOAT, TOK_DOUBLE},
    {"INTEGER", KVN_INTEGER, TOK_INT},
    {"DATE", KVN_DATE, TOK_DOUBLE},
    {"YEAR", KVN_YEAR, TOK_DOUBLE},
    {"MONTHYEAR", KVN_MONTHYEAR, TOK_DOUBLE},
}};

/// The row of a word, which must match to the letter; null for any other text.
[[nodiscard]] constexpr const TypeWord* findTypeWord(std::string_view word) noexcept {
    for (const TypeWord& row : kTypeWords)
        if (row.word == word)
            return &row;
    return nullptr;
}

} // namespace tivra_internal
