// The form of the body parser that leaves numbers in the frame as texts, compiled once for each instruction
// set after BodyParserVector.inl.
//
// It goes from field to field as the other form does. A number is checked by the bits of a look that say
// which bytes are digits, which takes a few operations where decoding takes many. At the first field that is
// not as usual it hands over to the form that decodes: so all refusals, and the rules for odd values, are in
// one place. What is rare stands in functions of its own, which leaves the registers to the loop.

namespace KVNAPI {
namespace {

/// The longest text that is checked here: with its point it can't have more decimals than a number may.
constexpr std::size_t kLongestNumber = detail::kMaxFractionDigits + 1;

/// The bytes of a block, the first one lowest.
struct LazyLook {
    KVN_INLINE LazyLook(const Separators& separators, const char* position) : block(position) {
        const ByteBits bytes = separators.bitsFrom(position);
        ends = bytes.separators;
        others = ~bytes.digits;
    }
    /// The bytes of a text of the block that are no digits, the first one of it lowest.
    [[nodiscard]] KVN_INLINE std::uint64_t othersBetween(const char* from, const char* end) const {
        return (others & ((std::uint64_t{1} << (end - block)) - 1)) >> (from - block);
    }

    const char* block;
    std::uint64_t ends; ///< of the fields that are still to be taken
    std::uint64_t others;
};

/// True for digits with perhaps a point, if `isDecimal`, anywhere among them. `others` are the bytes that are
/// no digits, the first one of the text lowest.
KVN_INLINE bool isUnsigned(const char* from, std::uint64_t others, bool isDecimal) {
    return others == 0 ||
           (isDecimal && (others & (others - 1)) == 0 && from[std::countr_zero(others)] == '.');
}

/// The same for a text that a sign and a digit begin.
KVN_TARGET __attribute__((noinline)) bool isSigned(const char* from, std::uint64_t others, std::size_t size,
                                                   bool isDecimal) {
    return size > 1 && (*from == '-' || *from == '+') && (others & 2) == 0 &&
           isUnsigned(from + 1, others >> 1, isDecimal);
}

/// True for a number in its usual form.
KVN_INLINE bool isNumber(const LazyLook& look, const char* from, const char* end, bool isDecimal) {
    const auto size = static_cast<std::size_t>(end - from);
    const std::uint64_t others = look.othersBetween(from, end);
    return size - 1 < kLongestNumber &&
           (isUnsigned(from, others, isDecimal) || isSigned(from, others, size, isDecimal));
}

/// The row of the field that starts with these bytes, where the guess was wrong; null when there is none.
KVN_TARGET __attribute__((noinline)) FieldRow* findNextRow(KVNParse& parse, FieldRow& previous,
                                                           std::uint64_t bytes) {
    FieldRow* row = parse.knownRow(bytes);
    if (!row->startsWith(bytes))
        row = findRow(parse, bytes);
    if (row != nullptr)
        previous.next = row;
    return row;
}

/// Reads a value that does not become a pair. False when it is not an ordinary one.
KVN_INLINE bool readHeader(KVNParse& parse, Message& message, FieldRow::Kind kind, const char* from,
                           const char* end) {
    switch (kind) {
    case FieldRow::SYMBOL:
        if (message.symbol.len != 0)
            return false;
        message.symbol = bufref(from, static_cast<std::size_t>(end - from));
        return true;
    case FieldRow::EXCHANGE:
        return readExchange(parse, message, from, end);
    case FieldRow::PERMISSION:
        return readPermission(parse, message, from, end);
    case FieldRow::REFRESH:
        return readRefresh(message, from, end);
    case FieldRow::DENOM:
        return readDenom(message, from, end);
    case FieldRow::MARKET:
        return readMarket(message, from, end);
    default:
        return false;
    }
}

/// Takes a value, and a slot for its pair if it needs one. False when it is not as usual; nothing has been
/// changed then that reading it again would not.
KVN_INLINE bool takeValue(KVNParse& parse, Message& message, const LazyLook& look, const FieldRow& row,
                          const char* from, const char* end, TVPair*& pair) {
    FieldRow::Kind kind = row.kind;
    if (kind > FieldRow::STRING) {
        if (kind != FieldRow::FLAGGED)
            return readHeader(parse, message, kind, from, end);
        raiseFlags(message, row.present);
        kind = row.valueKind;
    }
    if (kind != FieldRow::STRING && !isNumber(look, from, end, kind == FieldRow::DOUBLE))
        return false;
    (pair++)->setB(row.token, bufref(from, static_cast<std::size_t>(end - from)));
    return true;
}

/// Decodes the fields from there on.
KVN_TARGET __attribute__((noinline)) int decodeRest(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

/// The pairs up to that one are those of the message; their values are texts.
KVN_INLINE void storePairs(Message& message, const TVPair* end, bufref frame) {
    const std::ptrdiff_t count = end - message.pairs;
    message.paircount = static_cast<std::int32_t>(count);
    message.setUndecoded(
        count < Message::kMostUndecoded ? (std::uint64_t{1} << count) - 1 : ~std::uint64_t{0}, frame.end());
}

template<bool kMixed>
KVN_INLINE int parseLazilyIn(KVNParse& parse, const char* position) {
    Message& message = *parse.m_msg;
    const bufref frame = parse.m_frame;
    const Separators separators(frame);
    const char* const lastEight = frame.end() - sizeof(std::uint64_t);
    FieldRow* row = parse.firstRow();
    unsigned misses = 0;
    TVPair* pair = message.pairs;
    for (;;) {
        LazyLook look(separators, position);
        // A field that is longer than a block is none of the usual ones.
        const auto fields = static_cast<std::int32_t>(std::popcount(look.ends));
        const auto count = static_cast<std::int32_t>(pair - message.pairs);
        if (fields == 0 || count + fields > Message::kMostUndecoded)
            break;
        message.paircount = count;
        message.reservePairs(count + fields);
        pair = message.pairs + count;
        do {
            const char* const end = look.block + std::countr_zero(look.ends);
            look.ends &= look.ends - 1;
            const std::uint64_t bytes = loadStart(position, lastEight);
            FieldRow* found = kMixed ? parse.knownRow(bytes) : row->next;
            if (!found->startsWith(bytes)) {
                ++misses;
                found = findNextRow(parse, *row, bytes);
            }
            if (found == nullptr ||
                !takeValue(parse, message, look, *found, position + found->startSize, end, pair)) {
                storePairs(message, pair, frame);
                return decodeRest(parse, position);
            }
            row = found;
            position = end + 1;
            if (*end != '|') {
                storePairs(message, pair, frame);
                parse.layouts().note(misses, static_cast<unsigned>(message.paircount));
                return endFrame(parse, end).end == Progress::FRAME_END ? 0 : -1;
            }
        } while (look.ends != 0);
    }
    storePairs(message, pair, frame);
    return decodeRest(parse, position);
}

KVN_INLINE int parseBodyLazily(KVNParse& parse, const char* position) {
    if (!parse.hasTextsInFrame())
        return decodeRest(parse, position);
    return parse.layouts().areMixed() ? parseLazilyIn<true>(parse, position)
                                      : parseLazilyIn<false>(parse, position);
}

} // namespace
} // namespace KVNAPI
