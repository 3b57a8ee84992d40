// The vector form of the body parser, compiled once for each instruction set: an including file defines
// KVN_TARGET, the target attribute of its functions, and `classify` before it includes this.
//
// It first notes where the separators of a stretch stand, many bytes at a time, and then walks from field to
// field. Since a field's place is known before its neighbour has been read, the processor works on several at
// once; that, and not the width of the vectors, is what makes it quick. Whatever is not an ordinary field is
// left to KVNParse::parseField, so the rules for odd values and all refusals stand in one place.

#include "kvnparse/Denom.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KVNAPI {
namespace {

/// Bytes that are indexed at a time; a field that is longer is read byte by byte.
constexpr std::size_t STRETCH = 512;
constexpr std::size_t BLOCK = 64;
/// Positions are written this many at a time, past the last one.
constexpr std::size_t SURPLUS = 16;
/// How many bytes a text may have to be copied as one vector.
constexpr std::size_t SHORT_TEXT = 16;

/// Where things stand in a stretch of the frame, counted from its first byte.
struct StretchIndex {
    std::uint64_t others[STRETCH / BLOCK + 1];   ///< a bit for each byte that is no digit
    std::uint16_t separators[STRETCH + SURPLUS]; ///< "=", "|" and the end byte, in order
    std::size_t count;
};

/// Adds the separators of one block. They alternate with text in no known way, so a fixed number is written
/// and the surplus overwritten by the next block.
KVN_TARGET inline std::size_t addSeparators(std::uint16_t* out, std::uint64_t bits, std::size_t offset) {
    const auto count = static_cast<std::size_t>(std::popcount(bits));
    for (std::size_t done = 0;;) {
        for (std::size_t i = 0; i < SURPLUS; ++i) {
            out[done + i] =
                static_cast<std::uint16_t>(offset + static_cast<std::size_t>(std::countr_zero(bits)));
            bits &= bits - 1;
        }
        done += SURPLUS;
        if (done >= count)
            return count;
    }
}

/// The last block of a frame, which is shorter than the vectors: read together with what stands before it, or
/// from a copy when the whole frame is that short.
KVN_TARGET inline BlockMasks classifyTail(const char* from, std::size_t size, bufref frame) {
    BlockMasks masks;
    if (frame.len >= BLOCK) {
        masks = classify(from + size - BLOCK);
        masks.separators >>= BLOCK - size;
        masks.others >>= BLOCK - size;
    } else {
        char copy[BLOCK] = {};
        std::memcpy(copy, from, size);
        masks = classify(copy);
        masks.separators &= (std::uint64_t{1} << size) - 1;
    }
    return masks;
}

KVN_TARGET inline void indexStretch(StretchIndex& index, const char* from, bufref frame) {
    const auto left = static_cast<std::size_t>(frame.end() - from);
    const std::size_t size = left < STRETCH ? left : STRETCH;
    std::size_t count = 0;
    std::size_t block = 0;
    for (; (block + 1) * BLOCK <= size; ++block) {
        const BlockMasks masks = classify(from + block * BLOCK);
        index.others[block] = masks.others;
        count += addSeparators(index.separators + count, masks.separators, block * BLOCK);
    }
    index.others[block] = 0;
    if (const std::size_t tail = size - block * BLOCK; tail != 0) {
        const BlockMasks masks = classifyTail(from + block * BLOCK, tail, frame);
        index.others[block] = masks.others;
        count += addSeparators(index.separators + count, masks.separators, block * BLOCK);
        if (block + 1 < std::size(index.others))
            index.others[block + 1] = 0;
    }
    index.count = count;
}

/// The bits of `length` bytes (less than 64) from `offset` that are no digits.
KVN_TARGET inline std::uint64_t othersOf(const StretchIndex& index, std::size_t offset, std::size_t length) {
    const std::size_t word = offset / BLOCK;
    const std::size_t shift = offset % BLOCK;
    const std::uint64_t bits = index.others[word] >> shift | index.others[word + 1] << 1
                                                                                    << (BLOCK - 1 - shift);
    return bits & ((std::uint64_t{1} << length) - 1);
}

KVN_TARGET inline std::uint64_t loadEight(const char* from) {
    std::uint64_t bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

/// The number of the last `count` (1 to 8) of eight bytes that are known to be digits.
KVN_TARGET inline std::uint64_t lastDigits(std::uint64_t bytes, std::size_t count) {
    constexpr std::uint64_t PAIRS = 0x000000FF000000FF;
    const std::size_t surplus = 64 - count * 8;
    std::uint64_t digits = (bytes & 0x0F0F0F0F0F0F0F0F) >> surplus << surplus;
    digits = digits * 10 + (digits >> 8);
    return ((digits & PAIRS) * (100 + (1000000ULL << 32)) +
            ((digits >> 16) & PAIRS) * (1 + (10000ULL << 32))) >>
           32;
}

/// The number of `count` (1 to 16) digits that end at `end`, with eight readable bytes before them.
KVN_TARGET inline std::uint64_t digitsBefore(const char* end, std::size_t count) {
    if (count <= 8)
        return lastDigits(loadEight(end - 8), count);
    return lastDigits(loadEight(end - 16), count - 8) * 100000000 + lastDigits(loadEight(end - 8), 8);
}

/// Masks for the last `n` of eight bytes.
constexpr std::uint64_t LAST_BYTES[] = {0,
                                        0xFF00000000000000,
                                        0xFFFF000000000000,
                                        0xFFFFFF0000000000,
                                        0xFFFFFFFF00000000,
                                        0xFFFFFFFFFF000000,
                                        0xFFFFFFFFFFFF0000,
                                        0xFFFFFFFFFFFFFF00,
                                        0xFFFFFFFFFFFFFFFF};

/// A whole part of `wholeCount` digits before `point` and `fractionCount` digits before `end`, up to eight
/// each: both at once.
KVN_TARGET inline double shortDouble(const char* point, std::size_t wholeCount, const char* end,
                                     std::size_t fractionCount) {
    const __m128i text = _mm_set_epi64x(static_cast<long long>(loadEight(end - 8)),
                                        static_cast<long long>(loadEight(point - 8)));
    const __m128i mask =
        _mm_set_epi64x(static_cast<long long>(LAST_BYTES[fractionCount] & 0x0F0F0F0F0F0F0F0F),
                       static_cast<long long>(LAST_BYTES[wholeCount] & 0x0F0F0F0F0F0F0F0F));
    const __m128i digits = _mm_and_si128(text, mask);
    const __m128i twos = _mm_maddubs_epi16(digits, _mm_set1_epi16(0x010A));
    const __m128i fours = _mm_madd_epi16(twos, _mm_set1_epi32(0x00010064));
    const __m128i packed = _mm_packus_epi32(fours, fours);
    const __m128i eights = _mm_madd_epi16(packed, _mm_set1_epi32(0x00012710));
    const __m128d parts = _mm_cvtepi32_pd(eights);
    const __m128d scaled = _mm_mul_pd(parts, _mm_set_pd(detail::DECIMAL_FRACTIONS[fractionCount], 1.0));
    return _mm_cvtsd_f64(_mm_add_sd(scaled, _mm_unpackhi_pd(scaled, scaled)));
}

/// The value of a field: where it stands, and which of its bytes are no digits.
struct Value {
    const char* start;
    const char* end;
    std::uint64_t others;

    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(end - start); }
};

/// Takes a sign off the value; true for "-".
KVN_TARGET inline bool takeSign(Value& value) {
    if ((value.others & 1) == 0 || (*value.start != '-' && *value.start != '+'))
        return false;
    const bool negative = *value.start == '-';
    ++value.start;
    value.others >>= 1;
    return negative;
}

/// Reads a value of 1 to 16 digits. False for any other.
KVN_TARGET inline bool readInteger(Value value, std::int64_t& result) {
    const bool negative = value.others != 0 && takeSign(value);
    if (value.others != 0 || value.size() - 1 >= 16)
        return false;
    const auto number = static_cast<std::int64_t>(digitsBefore(value.end, value.size()));
    result = negative ? -number : number;
    return true;
}

/// Reads a value of digits, and perhaps a point with digits on both sides of it. False for any other.
KVN_TARGET inline bool readDecimal(Value value, double& result) {
    const bool negative = takeSign(value);
    double number;
    if (value.others == 0) {
        if (value.size() - 1 >= 16)
            return false;
        number = static_cast<double>(static_cast<std::int64_t>(digitsBefore(value.end, value.size())));
    } else {
        const auto whole = static_cast<std::size_t>(std::countr_zero(value.others));
        const std::size_t fraction = value.size() - whole - 1;
        const char* const point = value.start + whole;
        if ((value.others & (value.others - 1)) != 0 || *point != '.' || whole - 1 >= 16 ||
            fraction - 1 >= 16)
            return false;
        if (whole <= 8 && fraction <= 8)
            number = shortDouble(point, whole, value.end, fraction);
        else
            number = static_cast<double>(static_cast<std::int64_t>(digitsBefore(point, whole))) +
                     static_cast<double>(static_cast<std::int64_t>(digitsBefore(value.end, fraction))) *
                         detail::DECIMAL_FRACTIONS[fraction];
    }
    result = negative ? -number : number;
    return true;
}

/// Copies a text behind what the message holds. False when that takes more than one vector.
KVN_TARGET inline bool copyShortText(Message& message, const Value& value, const char* frameEnd,
                                     bufref& text) {
    if (value.size() > SHORT_TEXT || static_cast<std::size_t>(frameEnd - value.start) < SHORT_TEXT ||
        static_cast<std::size_t>(message.endArea - message.nextArea) < SHORT_TEXT)
        return false;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(message.nextArea),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(value.start)));
    text = bufref(message.nextArea, value.size());
    message.nextArea += value.size();
    return true;
}

/// Reads the value of a known token. False when it is not an ordinary one; nothing has been changed then.
KVN_TARGET inline bool readValue(KVNParse& parse, const FieldRow& row, const Value& value) {
    Message& message = *parse.m_msg;
    std::int64_t number = 0;
    switch (row.kind) {
    case FieldRow::INTEGER:
        if (!readInteger(value, number))
            return false;
        message.addPair()->setI(row.token, number);
        return true;
    case FieldRow::DOUBLE: {
        double decimal = 0.0;
        if (!readDecimal(value, decimal))
            return false;
        message.addPair()->setD(row.token, decimal);
        return true;
    }
    case FieldRow::STRING: {
        bufref text;
        if (!copyShortText(message, value, parse.m_frame.end(), text))
            return false;
        message.addPair()->setB(row.token, text);
        return true;
    }
    case FieldRow::SYMBOL:
        return message.symbol.len == 0 && copyShortText(message, value, parse.m_frame.end(), message.symbol);
    case FieldRow::EXCHANGE:
        if (message.exchange != nullptr || !readInteger(value, number))
            return false;
        message.exchange = parse.exchange(number);
        return true;
    case FieldRow::PERMISSION:
        if (message.permission != nullptr || !readInteger(value, number))
            return false;
        message.permission = parse.exchange(number);
        return true;
    case FieldRow::REFRESH:
        if (value.size() != 1 || *value.start != '1')
            return false;
        message.isRefresh = 1;
        return true;
    case FieldRow::DENOM:
        if (!readInteger(value, number))
            return false;
        message.denomcode = Denom::lookupKVNcode(static_cast<std::int32_t>(number));
        return true;
    case FieldRow::MARKET:
        if (value.size() != 1)
            return false;
        message.market = *value.start;
        return true;
    case FieldRow::UNRESOLVED:
        break;
    }
    return false;
}

/// The number of a token from the text before its "=". A number that can't be in the rows for one that is no
/// number or a long one.
KVN_TARGET inline std::uint32_t tokenId(const StretchIndex& index, const char* stretch, std::size_t from,
                                        std::size_t to, const char* frameStart) {
    const std::size_t count = to - from;
    if (count - 1 >= 8 || othersOf(index, from, count) != 0)
        return KVNParse::MAX_ROWS;
    // A first number of one digit has only seven bytes before its end.
    const char* const eight = stretch + to - 8;
    const std::uint64_t bytes = eight >= frameStart ? loadEight(eight) : loadEight(frameStart) << 8;
    return static_cast<std::uint32_t>(lastDigits(bytes, count));
}

void raiseFlags(Message& message, unsigned present) {
    if (present & FieldRow::RET_CODE)
        message.isRetCodePresent = 1;
    if (present & FieldRow::TAG)
        message.isTagPresent = 1;
    if (present & FieldRow::ALT_INDEX)
        message.isAltIndexPresent = 1;
}

/// What stands at the end of a field.
enum class FieldEnd { NEXT, FRAME_END, REFUSED };

/// Reads the fields that lie wholly within the stretch at `position`, which moves along.
KVN_TARGET inline FieldEnd parseStretch(KVNParse& parse, const StretchIndex& index, const char*& position) {
    const char* const stretch = position;
    const bufref frame = parse.m_frame;
    unsigned present = 0;
    std::size_t from = 0;
    FieldEnd result = FieldEnd::NEXT;
    for (std::size_t at = 0; at + 2 <= index.count;) {
        const std::size_t equals = index.separators[at];
        const std::size_t end = index.separators[at + 1];
        const char ends = stretch[end];
        if (stretch[equals] == '=' && ends != '=') {
            const FieldRow& row = parse.row(tokenId(index, stretch, from, equals, frame.buf));
            const std::size_t size = end - equals - 1;
            const Value value{stretch + equals + 1, stretch + end,
                              size < 64 ? othersOf(index, equals + 1, size) : ~std::uint64_t{0}};
            if (readValue(parse, row, value)) {
                present |= row.present;
                at += 2;
                from = end + 1;
                if (ends == '|')
                    continue;
                // The one way to an end byte that is not the frame's last is a damaged frame.
                result = stretch + from == frame.end() ? FieldEnd::FRAME_END : FieldEnd::REFUSED;
                if (result == FieldEnd::REFUSED)
                    parse.abortAt(stretch + end, "Data after ETX");
                break;
            }
        }
        const char* const behind = parse.parseField(stretch + from);
        const char* next = nullptr;
        const int more = behind == nullptr ? -1 : parse.endField(behind, next);
        if (more <= 0) {
            result = more == 0 ? FieldEnd::FRAME_END : FieldEnd::REFUSED;
            break;
        }
        from = static_cast<std::size_t>(next - stretch);
        while (at < index.count && index.separators[at] < from)
            ++at;
    }
    raiseFlags(*parse.m_msg, present);
    position = stretch + from;
    return result;
}

KVN_TARGET inline int parseBodyVector(KVNParse& parse, const char* position) {
    StretchIndex index;
    for (;;) {
        indexStretch(index, position, parse.m_frame);
        const char* const before = position;
        FieldEnd end = parseStretch(parse, index, position);
        if (end == FieldEnd::NEXT && position == before) {
            // No field ends within a stretch from here.
            position = parse.parseField(position);
            const int more = position == nullptr ? -1 : parse.endField(position, position);
            end = more > 0 ? FieldEnd::NEXT : more == 0 ? FieldEnd::FRAME_END : FieldEnd::REFUSED;
        }
        if (end != FieldEnd::NEXT)
            return end == FieldEnd::FRAME_END ? 0 : -1;
    }
}

} // namespace
} // namespace KVNAPI
