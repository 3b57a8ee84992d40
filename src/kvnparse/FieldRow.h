#pragma once

#include <cstdint>

namespace KVNAPI {

class KVNParse;
class Token;

/// Reads the value at a position of the frame into the parser's message. Returns the position behind the
/// value, or null after an abort that it has reported.
using kvnparser_t = const char* (*)(KVNParse* parse, const char* position);

/// What the vector forms of the parser know of a token: how its field starts and is read, and which field
/// has followed it. Messages of a feed repeat few layouts, so the next field is mostly found by one
/// comparison.
struct alignas(64) FieldRow {
    enum Kind : std::uint8_t {
        INTEGER,
        DOUBLE,
        STRING,
        SYMBOL,
        EXCHANGE,
        PERMISSION,
        REFRESH,
        DENOM,
        MARKET,
        FLAGGED, ///< raises a flag of the message, and is then read as `valueKind` has it
        NONE     ///< stands before the first field of a message, and for tokens that have no row
    };
    /// Bits of `present`: flags of the message that the field raises.
    enum Present : std::uint8_t { RET_CODE = 1, TAG = 2, ALT_INDEX = 4 };

    /// Whether eight bytes, the first one lowest, start with the number of this row and "=".
    [[nodiscard]] bool startsWith(std::uint64_t bytes) const noexcept { return (bytes & startMask) == start; }

    std::uint64_t start = 1;     ///< the bytes of the number and "=", the first one lowest
    std::uint64_t startMask = 0; ///< which of eight bytes those are
    FieldRow* next = nullptr;    ///< the row that followed last; never null once the row is in use
    Token* token = nullptr;
    kvnparser_t function = nullptr; ///< what reads the value by the plain rules, or null for the default step
    Kind kind = NONE;
    std::uint8_t startSize = 0;
    std::uint8_t present = 0;
    Kind valueKind = NONE;
};

} // namespace KVNAPI
