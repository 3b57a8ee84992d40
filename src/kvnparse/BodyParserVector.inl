// The vector form of the body parser, compiled once for each instruction set: an including file defines
// KVN_TARGET, the target attribute of its functions, and `separatorsOf` before it includes this.
//
// It first notes where the separators of a stretch stand, many bytes at a time, and then walks from field to
// field. Since the end of a field is known before it has been read, the processor works on several at once;
// that, and not the width of the vectors, is what makes it quick. Whatever is not an ordinary field is left
// to KVNParse::parseField, so the rules for odd values and all refusals stand in one place.
//
// No byte outside the frame is read: loads end at the end of a value, which has a header and the number of
// its token before it, or are clipped to the frame.

#include "kvnparse/Denom.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define KVN_INLINE KVN_TARGET __attribute__((always_inline)) inline

namespace KVNAPI {
namespace {

/// Bytes that are indexed at a time; a field that is longer is read byte by byte.
constexpr std::size_t STRETCH = 512;
constexpr std::size_t BLOCK = 64;
/// Positions are written this many at a time, past the last one.
constexpr std::size_t SURPLUS = 8;
constexpr std::size_t VECTOR = 16;

/// Where "|" and the end byte stand in a stretch of the frame, counted from its first byte.
struct StretchIndex {
    std::uint16_t ends[STRETCH + SURPLUS];
    std::size_t count;
};

/// Adds the separators of one block. Writing a fixed number, of which the next block overwrites the surplus,
/// is quicker than ending at each block's own count.
KVN_INLINE std::size_t addSeparators(std::uint16_t* out, std::uint64_t bits, std::size_t offset) {
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
KVN_INLINE std::uint64_t separatorsOfTail(const char* from, std::size_t size, bufref frame) {
    if (frame.len >= BLOCK)
        return separatorsOf(from + size - BLOCK) >> (BLOCK - size);
    char copy[BLOCK] = {};
    std::memcpy(copy, from, size);
    return separatorsOf(copy);
}

KVN_INLINE void indexStretch(StretchIndex& index, const char* from, bufref frame) {
    const auto left = static_cast<std::size_t>(frame.end() - from);
    const std::size_t size = left < STRETCH ? left : STRETCH;
    std::size_t count = 0;
    std::size_t offset = 0;
    for (; offset + BLOCK <= size; offset += BLOCK)
        count += addSeparators(index.ends + count, separatorsOf(from + offset), offset);
    if (offset != size)
        count +=
            addSeparators(index.ends + count, separatorsOfTail(from + offset, size - offset, frame), offset);
    index.count = count;
}

KVN_INLINE std::uint64_t loadEight(const char* from) {
    std::uint64_t bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

KVN_INLINE __m128i loadVector(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

/// Sixteen zeros and sixteen ones: the vector that starts n bytes in has ones in its last n bytes.
constexpr std::array<std::uint8_t, 2 * VECTOR> LAST_BYTES = [] {
    std::array<std::uint8_t, 2 * VECTOR> bytes{};
    for (std::size_t i = VECTOR; i < 2 * VECTOR; ++i)
        bytes[i] = 0xFF;
    return bytes;
}();

/// How digits move for a number with some fraction digits, which end at the last byte behind a point.
struct DigitMove {
    std::array<std::uint8_t, VECTOR> toHalves; ///< up to eight whole digits and up to eight of the fraction
    std::array<std::uint8_t, VECTOR> closeUp;  ///< all digits, without the point
};

constexpr std::array<DigitMove, VECTOR> DIGIT_MOVES = [] {
    constexpr std::uint8_t ZERO = 0x80;
    std::array<DigitMove, VECTOR> moves{};
    for (std::size_t fraction = 0; fraction < VECTOR; ++fraction) {
        DigitMove& move = moves[fraction];
        const std::size_t point = VECTOR - 1 - fraction;
        for (std::size_t i = 0; i < VECTOR; ++i) {
            // The byte that comes to place i, from the right end of each part.
            const std::size_t fromRight = i < 8 ? 7 - i : VECTOR - 1 - i;
            const bool has = i < 8 ? fromRight < point : fromRight < fraction;
            move.toHalves[i] =
                !has ? ZERO : static_cast<std::uint8_t>((i < 8 ? point : VECTOR) - 1 - fromRight);
            move.closeUp[i] = i > point ? static_cast<std::uint8_t>(i)
                              : i == 0  ? ZERO
                                        : static_cast<std::uint8_t>(i - 1);
        }
    }
    return moves;
}();

/// Division of numbers below 10^16 by a power of ten, as a multiplication.
struct PowerOfTen {
    std::uint64_t power;
    std::uint64_t factor; ///< 2^(64 + shift) / power, rounded up
    unsigned shift;
};

constexpr std::array<PowerOfTen, VECTOR> POWERS = [] {
    std::array<PowerOfTen, VECTOR> powers{};
    std::uint64_t power = 1;
    for (std::size_t i = 0; i < VECTOR; ++i, power *= 10) {
        const auto shift = static_cast<unsigned>(std::bit_width(power) - 1);
        // Long division of 2^(64 + shift) by the power.
        std::uint64_t quotient = 0;
        std::uint64_t rest = std::uint64_t{1} << shift;
        for (int bit = 0; bit < 64; ++bit) {
            // The power is below 2^54, so that doubling the rest keeps to 64 bits.
            quotient <<= 1;
            rest <<= 1;
            if (rest >= power) {
                rest -= power;
                quotient |= 1;
            }
        }
        powers[i] = {power, rest == 0 ? quotient : quotient + 1, shift};
    }
    return powers;
}();

/// Sixteen digit values, most significant first, as two numbers of eight digits in the lowest two of four.
KVN_INLINE __m128i joinDigits(__m128i digits) {
    const __m128i twos = _mm_maddubs_epi16(digits, _mm_set1_epi16(0x010A));
    const __m128i fours = _mm_madd_epi16(twos, _mm_set1_epi32(0x00010064));
    const __m128i packed = _mm_packus_epi32(fours, _mm_setzero_si128());
    return _mm_madd_epi16(packed, _mm_set1_epi32(0x00012710));
}

/// The number in sixteen digit values.
KVN_INLINE std::uint64_t sixteenDigits(__m128i digits) {
    const auto parts = static_cast<std::uint64_t>(_mm_cvtsi128_si64(joinDigits(digits)));
    return (parts & 0xFFFFFFFF) * 100000000 + (parts >> 32);
}

/// True when a byte of digit values is none.
KVN_INLINE bool hasOthers(__m128i digits) {
    const __m128i excess = _mm_subs_epu8(digits, _mm_set1_epi8(9));
    return _mm_testz_si128(excess, excess) == 0;
}

/// Reads `size` bytes before `end` as 1 to 16 digits. False for any other text.
KVN_INLINE bool readDigits(const char* end, std::size_t size, std::uint64_t& result) {
    if (size - 1 < 8) {
        __m128i digits =
            _mm_sub_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(end - 8)), _mm_set1_epi8('0'));
        digits = _mm_and_si128(
            digits, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(LAST_BYTES.data() + 8 + size)));
        result = static_cast<std::uint64_t>(_mm_cvtsi128_si64(joinDigits(digits)));
        return !hasOthers(digits);
    }
    if (size - 1 >= VECTOR)
        return false;
    // More than eight digits, with a number, "=" and a header before them.
    const __m128i digits = _mm_and_si128(_mm_sub_epi8(loadVector(end - VECTOR), _mm_set1_epi8('0')),
                                         loadVector(LAST_BYTES.data() + size));
    result = sixteenDigits(digits);
    return !hasOthers(digits);
}

KVN_INLINE bool hasSign(const char* from, std::size_t size) {
    return size > 1 && (*from == '-' || *from == '+');
}

/// Reads a text of 1 to 16 digits and perhaps a sign. False for any other.
KVN_INLINE bool readInteger(const char* from, const char* end, std::int64_t& result) {
    const auto size = static_cast<std::size_t>(end - from);
    std::uint64_t number = 0;
    if (readDigits(end, size, number)) {
        result = static_cast<std::int64_t>(number);
        return true;
    }
    if (!hasSign(from, size) || !readDigits(end, size - 1, number))
        return false;
    result = static_cast<std::int64_t>(*from == '-' ? 0 - number : number);
    return true;
}

/// Reads a text of up to 16 bytes before `end`: digits, and perhaps a point with digits on both sides of it.
/// False for any other.
KVN_INLINE bool readDecimal(const char* end, std::size_t size, double& result) {
    if (size - 1 >= VECTOR)
        return false;
    const __m128i digits = _mm_and_si128(_mm_sub_epi8(loadVector(end - VECTOR), _mm_set1_epi8('0')),
                                         loadVector(LAST_BYTES.data() + size));
    const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(digits, _mm_set1_epi8(9)), digits);
    const std::uint32_t others = static_cast<std::uint32_t>(_mm_movemask_epi8(isDigit)) ^ 0xFFFF;
    if (others == 0) {
        result = static_cast<double>(static_cast<std::int64_t>(sixteenDigits(digits)));
        return true;
    }
    const auto point = static_cast<std::size_t>(std::countr_zero(others));
    const std::size_t fraction = VECTOR - 1 - point;
    const std::size_t whole = size - 1 - fraction;
    if ((others & (others - 1)) != 0 || *(end - 1 - fraction) != '.' || whole == 0 || fraction == 0)
        return false;
    const DigitMove& move = DIGIT_MOVES[fraction];
    if (whole <= 8 && fraction <= 8) {
        const __m128i halves = _mm_shuffle_epi8(digits, loadVector(move.toHalves.data()));
        const __m128d parts = _mm_cvtepi32_pd(joinDigits(halves));
        result = _mm_cvtsd_f64(parts) +
                 _mm_cvtsd_f64(_mm_unpackhi_pd(parts, parts)) * detail::DECIMAL_FRACTIONS[fraction];
        return true;
    }
    const std::uint64_t all = sixteenDigits(_mm_shuffle_epi8(digits, loadVector(move.closeUp.data())));
    const PowerOfTen& power = POWERS[fraction];
    __extension__ using Wide = unsigned __int128;
    const std::uint64_t wholePart =
        static_cast<std::uint64_t>(static_cast<Wide>(all) * power.factor >> 64) >> power.shift;
    const std::uint64_t fractionPart = all - wholePart * power.power;
    result =
        static_cast<double>(static_cast<std::int64_t>(wholePart)) +
        static_cast<double>(static_cast<std::int64_t>(fractionPart)) * detail::DECIMAL_FRACTIONS[fraction];
    return true;
}

/// The same with perhaps a sign, for a text that has room for a vector before its end.
KVN_INLINE bool readSignedDecimal(const char* from, const char* end, const char* frameStart, double& result) {
    const auto size = static_cast<std::size_t>(end - from);
    if (end - frameStart < static_cast<std::ptrdiff_t>(VECTOR))
        return false;
    if (readDecimal(end, size, result))
        return true;
    if (!hasSign(from, size) || !readDecimal(end, size - 1, result))
        return false;
    result = *from == '-' ? -result : result;
    return true;
}

/// Where the message is written to; its own fields follow when the fields of a stretch are done.
class Output {
public:
    KVN_INLINE explicit Output(Message& message) : m_message(message) { reload(); }

    /// Takes over what others have added.
    KVN_INLINE void reload() {
        m_pair = m_message.pairs + m_message.paircount;
        m_pairsEnd = m_message.pairsEnd();
        m_area = m_message.nextArea;
        m_areaEnd = m_message.endArea;
    }
    KVN_INLINE void store() {
        m_message.paircount = static_cast<std::int32_t>(m_pair - m_message.pairs);
        m_message.nextArea = m_area;
    }

    [[nodiscard]] KVN_INLINE bool isFull() const { return m_pair == m_pairsEnd; }
    [[nodiscard]] KVN_INLINE TVPair* add() { return m_pair++; }

    /// Copies a text behind what the message holds. False when that takes more than one vector.
    KVN_INLINE bool copyText(const char* from, std::size_t size, const char* frameEnd, bufref& text) {
        if (size > VECTOR || frameEnd - from < static_cast<std::ptrdiff_t>(VECTOR) ||
            m_areaEnd - m_area < static_cast<std::ptrdiff_t>(VECTOR))
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(m_area), loadVector(from));
        text = bufref(m_area, size);
        m_area += size;
        return true;
    }

private:
    Message& m_message;
    TVPair* m_pair;
    TVPair* m_pairsEnd;
    char* m_area;
    const char* m_areaEnd;
};

/// Reads the value of a known token. False when it is not an ordinary one; nothing has been changed then.
KVN_INLINE bool readValue(KVNParse& parse, Output& out, const FieldRow& row, const char* from,
                          const char* end) {
    Message& message = *parse.m_msg;
    std::int64_t number = 0;
    switch (row.kind) {
    case FieldRow::INTEGER:
        if (out.isFull() || !readInteger(from, end, number))
            return false;
        out.add()->setI(row.token, number);
        return true;
    case FieldRow::DOUBLE: {
        double decimal = 0.0;
        if (out.isFull() || !readSignedDecimal(from, end, parse.m_frame.buf, decimal))
            return false;
        out.add()->setD(row.token, decimal);
        return true;
    }
    case FieldRow::STRING: {
        bufref text;
        if (out.isFull() ||
            !out.copyText(from, static_cast<std::size_t>(end - from), parse.m_frame.end(), text))
            return false;
        out.add()->setB(row.token, text);
        return true;
    }
    case FieldRow::SYMBOL:
        return message.symbol.len == 0 &&
               out.copyText(from, static_cast<std::size_t>(end - from), parse.m_frame.end(), message.symbol);
    case FieldRow::EXCHANGE:
        if (message.exchange != nullptr || !readInteger(from, end, number))
            return false;
        message.exchange = parse.exchange(number);
        return true;
    case FieldRow::PERMISSION:
        if (message.permission != nullptr || !readInteger(from, end, number))
            return false;
        message.permission = parse.exchange(number);
        return true;
    case FieldRow::REFRESH:
        if (end - from != 1 || *from != '1')
            return false;
        message.isRefresh = 1;
        return true;
    case FieldRow::DENOM:
        if (!readInteger(from, end, number))
            return false;
        message.denomcode = Denom::lookupKVNcode(static_cast<std::int32_t>(number));
        return true;
    case FieldRow::MARKET:
        if (end - from != 1)
            return false;
        message.market = *from;
        return true;
    case FieldRow::NONE:
        break;
    }
    return false;
}

/// The row of the field whose number and "=" these bytes start with, by its number; null when there is none.
KVN_TARGET inline FieldRow* findRow(KVNParse& parse, FieldRow& previous, std::uint64_t bytes) {
    const detail::DigitGroup number = detail::decodeEight(bytes);
    FieldRow* const row = number.count != 0 ? parse.row(static_cast<std::uint32_t>(number.value)) : nullptr;
    // Another spelling of the number, with zeros before it, or no "=" behind it.
    if (row == nullptr || (bytes & row->startMask) != row->start)
        return nullptr;
    previous.next[1] = previous.next[0];
    previous.next[0] = row;
    return row;
}

/// The row of the field that starts with these bytes; null when there is none.
KVN_INLINE FieldRow* rowOf(KVNParse& parse, FieldRow& previous, std::uint64_t bytes) {
    for (FieldRow* const row : previous.next)
        if (row != nullptr && (bytes & row->startMask) == row->start)
            return row;
    return findRow(parse, previous, bytes);
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

/// One field by the plain rules; `position` moves to the next one.
FieldEnd parsePlainField(KVNParse& parse, const char*& position) {
    const char* const end = parse.parseField(position);
    const int more = end == nullptr ? -1 : parse.endField(end, position);
    return more > 0 ? FieldEnd::NEXT : more == 0 ? FieldEnd::FRAME_END : FieldEnd::REFUSED;
}

/// Reads the fields that lie wholly within the stretch at `position`, which moves along, as `row` does.
KVN_INLINE FieldEnd parseStretch(KVNParse& parse, const StretchIndex& index, const char*& position,
                                 FieldRow*& row) {
    const char* const stretch = position;
    const bufref frame = parse.m_frame;
    const char* const lastEight = frame.end() - 8;
    Output out(*parse.m_msg);
    unsigned present = 0;
    FieldEnd result = FieldEnd::NEXT;
    for (std::size_t at = 0; at < index.count;) {
        const std::uint64_t bytes =
            position <= lastEight ? loadEight(position) : loadEight(lastEight) >> (position - lastEight) * 8;
        const char* const end = stretch + index.ends[at];
        if (FieldRow* const known = rowOf(parse, *row, bytes); known != nullptr) {
            row = known;
            if (readValue(parse, out, *known, position + known->startSize, end)) {
                present |= known->present;
                position = end + 1;
                ++at;
                if (*end == '|')
                    continue;
                // The one way to an end byte that is not the frame's last is a damaged frame.
                result = position == frame.end() ? FieldEnd::FRAME_END : FieldEnd::REFUSED;
                if (result == FieldEnd::REFUSED)
                    parse.abortAt(end, "Data after ETX");
                break;
            }
        }
        out.store();
        result = parsePlainField(parse, position);
        out.reload();
        if (result != FieldEnd::NEXT)
            break;
        while (at < index.count && stretch + index.ends[at] < position)
            ++at;
    }
    out.store();
    raiseFlags(*parse.m_msg, present);
    return result;
}

KVN_TARGET inline int parseBodyVector(KVNParse& parse, const char* position) {
    StretchIndex index;
    FieldRow* row = parse.firstRow();
    for (;;) {
        indexStretch(index, position, parse.m_frame);
        const char* const before = position;
        FieldEnd end = parseStretch(parse, index, position, row);
        if (end == FieldEnd::NEXT && position == before)
            end = parsePlainField(parse, position); // longer than a stretch
        if (end != FieldEnd::NEXT)
            return end == FieldEnd::FRAME_END ? 0 : -1;
    }
}

} // namespace
} // namespace KVNAPI
