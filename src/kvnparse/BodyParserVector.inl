// The vector form of the body parser, compiled once for each instruction set: an including file defines
// KVN_TARGET, the target attribute of its functions, and `separatorsOf` and `byteBitsOf` before it
// includes this. BodyParserLazy.inl has the form that leaves numbers undecoded.
//
// It looks at a block of bytes for the separators in it and then reads a few fields, whose ends are known
// before they have been read, so that the processor works on several at once; that, and not the width of the
// vectors, is what makes it quick. The next look begins at the field that follows: how many looks a message
// takes is then a matter of its fields and not of where blocks happen to end, which no branch predictor could
// guess. Whatever is not an ordinary field is left to KVNParse::parseField, so the rules for odd values and
// all refusals stand in one place.
//
// No byte outside the frame is read: loads end at the end of a value, which has a header and the number of
// its token before it, or are clipped to the frame.

#include "kvnparse/BodyParserTables.h"
#include "kvnparse/Denom.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define KVN_INLINE KVN_TARGET __attribute__((always_inline)) inline

namespace KVNAPI {
namespace {

/// Bytes that are looked at together.
constexpr std::size_t kBlock = 64;
/// Most fields that are read after one look: about as many as a block holds.
constexpr unsigned kFieldsPerLook = 6;

/// Finds the ends of the fields of a frame.
class Separators {
public:
    KVN_INLINE explicit Separators(bufref frame)
        : m_frame(frame.buf)
        , m_bytes(frame.buf)
        , m_lastBlock(static_cast<std::ptrdiff_t>(frame.len - kBlock)) {
        if (frame.len < kBlock) {
            // The block that ends where the frame does begins before it.
            std::memset(m_copy, 0, sizeof m_copy);
            std::memcpy(m_copy + (kBlock - frame.len), frame.buf, frame.len);
            m_bytes = m_copy + (kBlock - frame.len);
        }
    }

    /// A bit for each "|" and end byte of the bytes from there on, the first one lowest: of 64 bytes, or of
    /// those that are left.
    [[nodiscard]] KVN_INLINE std::uint64_t from(const char* position) const {
        const std::ptrdiff_t wanted = position - m_frame;
        const std::ptrdiff_t place = wanted < m_lastBlock ? wanted : m_lastBlock;
        return separatorsOf(m_bytes + place) >> (wanted - place);
    }
    /// The same, and the bits of digits.
    [[nodiscard]] KVN_INLINE ByteBits bitsFrom(const char* position) const {
        const std::ptrdiff_t wanted = position - m_frame;
        const std::ptrdiff_t place = wanted < m_lastBlock ? wanted : m_lastBlock;
        const ByteBits bits = byteBitsOf(m_bytes + place);
        return {bits.separators >> (wanted - place), bits.digits >> (wanted - place)};
    }

private:
    const char* m_frame;
    const char* m_bytes;
    std::ptrdiff_t m_lastBlock; ///< negative when the frame is shorter than a block
    char m_copy[kBlock];
};

KVN_INLINE std::uint64_t loadEight(const char* from) {
    std::uint64_t bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

KVN_INLINE __m128i loadVector(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

/// Sixteen digit values, most significant first, as four numbers of four digits.
KVN_INLINE __m128i joinFours(__m128i digits) {
    const __m128i twos = _mm_maddubs_epi16(digits, loadVector(kDigitTables.byTen));
    return _mm_madd_epi16(twos, loadVector(kDigitTables.byHundred));
}

/// Twice four numbers of four digits as twice two of eight digits.
KVN_INLINE __m128i joinEights(__m128i first, __m128i second) {
    return _mm_madd_epi16(_mm_packus_epi32(first, second), loadVector(kDigitTables.byTenThousand));
}

/// Sixteen digit values as two numbers of eight digits in the lowest two of four.
KVN_INLINE __m128i joinDigits(__m128i digits) {
    return joinEights(joinFours(digits), _mm_setzero_si128());
}

/// Two numbers of eight digits, the higher one lowest, as one.
KVN_INLINE std::uint64_t joinSixteen(std::int64_t eights) {
    const auto parts = static_cast<std::uint64_t>(eights);
    return (parts & 0xFFFFFFFF) * 100000000 + (parts >> 32);
}

/// The number in sixteen digit values.
KVN_INLINE std::uint64_t sixteenDigits(__m128i digits) {
    return joinSixteen(_mm_cvtsi128_si64(joinDigits(digits)));
}

/// The digits on both sides of a point as numbers.
struct NumberParts {
    KVN_INLINE NumberParts(__m128i digits, const PointPlace& place) {
        const __m128i parts = joinEights(joinFours(_mm_shuffle_epi8(digits, loadVector(place.toWhole))),
                                         joinFours(_mm_shuffle_epi8(digits, loadVector(place.toFraction))));
        whole = joinSixteen(_mm_cvtsi128_si64(parts));
        fraction = joinSixteen(_mm_extract_epi64(parts, 1));
    }
    /// As the plain form has it: not the nearest double, but this sum.
    [[nodiscard]] KVN_INLINE double sum(const PointPlace& place) const {
        return static_cast<double>(static_cast<std::int64_t>(whole)) +
               static_cast<double>(static_cast<std::int64_t>(fraction)) * place.fraction;
    }

    std::uint64_t whole;
    std::uint64_t fraction;
};

/// The values of `size` digits before `end`, zeros before them.
KVN_INLINE __m128i loadDigits(const char* end, std::size_t size) {
    return _mm_and_si128(_mm_sub_epi8(loadVector(end - kVector), loadVector(kDigitTables.zeroes)),
                         loadVector(kDigitTables.lastBytes + size));
}

/// Which of sixteen digit values are none, the first one lowest.
KVN_INLINE std::uint32_t othersOf(__m128i digits) {
    const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(digits, loadVector(kDigitTables.nines)), digits);
    return static_cast<std::uint32_t>(_mm_movemask_epi8(isDigit)) ^ 0xFFFF;
}

/// True when a byte of digit values is none.
KVN_INLINE bool hasOthers(__m128i digits) {
    const __m128i excess = _mm_subs_epu8(digits, loadVector(kDigitTables.nines));
    return _mm_testz_si128(excess, excess) == 0;
}

/// Reads `size` bytes before `end` as 1 to 16 digits. False for any other text.
KVN_INLINE bool readDigits(const char* end, std::size_t size, std::uint64_t& result) {
    if (size - 1 < 8) {
        __m128i digits = _mm_sub_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(end - 8)),
                                      loadVector(kDigitTables.zeroes));
        digits = _mm_and_si128(
            digits, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kDigitTables.lastBytes + 8 + size)));
        result = static_cast<std::uint64_t>(_mm_cvtsi128_si64(joinDigits(digits)));
        return !hasOthers(digits);
    }
    if (size - 1 >= kVector)
        return false;
    // More than eight digits, with a number, "=" and a header before them.
    const __m128i digits = loadDigits(end, size);
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
    if (size - 1 >= kVector)
        return false;
    const __m128i digits = loadDigits(end, size);
    const std::uint32_t others = othersOf(digits);
    if (others == 0) {
        result = static_cast<double>(static_cast<std::int64_t>(sixteenDigits(digits)));
        return true;
    }
    const auto point = static_cast<std::size_t>(std::countr_zero(others));
    if ((others & (others - 1)) != 0 ||
        end[static_cast<std::ptrdiff_t>(point) - static_cast<std::ptrdiff_t>(kVector)] != '.')
        return false;
    const std::size_t whole = size + point - kVector;
    const PointPlace& place = kDigitTables.places[point];
    if (whole - 1 < 8 && point - 7 < 8) {
        const __m128i halves = _mm_shuffle_epi8(digits, loadVector(place.toHalves));
        const __m128d parts = _mm_cvtepi32_pd(joinDigits(halves));
        result = _mm_cvtsd_f64(parts) + _mm_cvtsd_f64(_mm_unpackhi_pd(parts, parts)) * place.fraction;
        return true;
    }
    if (whole == 0 || point == kVector - 1)
        return false;
    result = NumberParts(digits, place).sum(place);
    return true;
}

/// The same with perhaps a sign, for a text that has room for a vector before its end.
KVN_INLINE bool readSignedDecimal(const char* from, const char* end, double& result) {
    const auto size = static_cast<std::size_t>(end - from);
    if (readDecimal(end, size, result))
        return true;
    if (!hasSign(from, size) || !readDecimal(end, size - 1, result))
        return false;
    result = *from == '-' ? -result : result;
    return true;
}

/// Which vectors lie within a frame: those that end from one place on and those that start up to another.
struct VectorLimits {
    KVN_INLINE explicit VectorLimits(bufref frame)
        : firstEnd(frame.buf + kVector), lastStart(frame.end() - kVector) {}

    const char* firstEnd;
    const char* lastStart;
};

/// Where the message is written to; its own fields follow when others are to see them.
class Output {
public:
    KVN_INLINE Output(Message& message, const VectorLimits& limits) : m_message(message), m_limits(limits) {
        reload();
    }

    /// Takes over what others have added.
    KVN_INLINE void reload() {
        m_pair = m_message.pairs + m_message.paircount;
        m_pairsEnd = m_message.pairsEnd();
        m_area = m_message.nextArea;
        m_lastVector = m_message.endArea - kVector;
    }
    KVN_INLINE void store() {
        m_message.paircount = static_cast<std::int32_t>(m_pair - m_message.pairs);
        m_message.nextArea = m_area;
    }

    /// Makes room for so many pairs more.
    KVN_INLINE void reserve(std::int32_t count) {
        // The usual case needs no exact answer.
        if (m_pair + kFieldsPerLook <= m_pairsEnd || m_pairsEnd - m_pair >= count)
            return;
        store();
        m_message.reservePairs(m_message.paircount + count);
        reload();
    }
    [[nodiscard]] KVN_INLINE TVPair* add() { return m_pair++; }

    /// Copies a text behind what the message holds. False when that takes more than one vector.
    KVN_INLINE bool copyText(const char* from, std::size_t size, bufref& text) {
        if (size > kVector || m_area > m_lastVector)
            return false;
        const std::ptrdiff_t excess = from - m_limits.lastStart;
        // A vector that starts there may leave the frame; the last one within it holds the text then.
        const __m128i bytes = excess <= 0 ? loadVector(from)
                                          : _mm_shuffle_epi8(loadVector(m_limits.lastStart),
                                                             loadVector(kDigitTables.moveDown + excess));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(m_area), bytes);
        text = bufref(m_area, size);
        m_area += size;
        return true;
    }

private:
    Message& m_message;
    const VectorLimits& m_limits;
    TVPair* m_pair;
    TVPair* m_pairsEnd;
    char* m_area;
    const char* m_lastVector;
};

/// A text as the message is to hold it.
KVN_INLINE bufref readText(KVNParse& parse, Output& out, const char* from, const char* end) {
    bufref text(from, static_cast<std::size_t>(end - from));
    if (parse.hasTextsInFrame() || out.copyText(from, text.len, text))
        return text;
    out.store();
    text = parse.keepText(from, end);
    out.reload();
    return text;
}

void raiseFlags(Message& message, unsigned present) {
    if (present & FieldRow::RET_CODE)
        message.isRetCodePresent = 1;
    if (present & FieldRow::TAG)
        message.isTagPresent = 1;
    if (present & FieldRow::ALT_INDEX)
        message.isAltIndexPresent = 1;
}

/// Adds the pair of a number. False when it is not an ordinary one; nothing has been changed then.
KVN_INLINE bool readNumber(Output& out, const VectorLimits& limits, Token* token, bool isDecimal,
                           const char* from, const char* end) {
    if (!isDecimal) {
        std::int64_t number = 0;
        if (!readInteger(from, end, number))
            return false;
        out.add()->setI(token, number);
        return true;
    }
    double decimal = 0.0;
    if (end < limits.firstEnd || !readSignedDecimal(from, end, decimal))
        return false;
    out.add()->setD(token, decimal);
    return true;
}

// Values for the header of a message. False when they are not ordinary ones; nothing has been changed then.

KVN_INLINE bool readExchange(KVNParse& parse, Message& message, const char* from, const char* end) {
    std::int64_t number = 0;
    if (message.exchange != nullptr || !readInteger(from, end, number))
        return false;
    message.exchange = parse.exchange(number);
    return true;
}

KVN_INLINE bool readPermission(KVNParse& parse, Message& message, const char* from, const char* end) {
    std::int64_t number = 0;
    if (message.permission != nullptr || !readInteger(from, end, number))
        return false;
    message.permission = parse.exchange(number);
    return true;
}

KVN_INLINE bool readRefresh(Message& message, const char* from, const char* end) {
    if (end - from != 1 || *from != '1')
        return false;
    message.isRefresh = 1;
    return true;
}

KVN_INLINE bool readDenom(Message& message, const char* from, const char* end) {
    std::int64_t number = 0;
    if (!readInteger(from, end, number))
        return false;
    message.denomcode = Denom::lookupKVNcode(static_cast<std::int32_t>(number));
    return true;
}

KVN_INLINE bool readMarket(Message& message, const char* from, const char* end) {
    if (end - from != 1)
        return false;
    message.market = *from;
    return true;
}

/// Reads the value of a known token. False when it is not an ordinary one; nothing has been changed then.
KVN_INLINE bool readValue(KVNParse& parse, Message& message, Output& out, const VectorLimits& limits,
                          const FieldRow& row, const char* from, const char* end) {
    // Most fields are numbers, which need no jump through a table.
    if (row.kind <= FieldRow::DOUBLE)
        return readNumber(out, limits, row.token, row.kind == FieldRow::DOUBLE, from, end);
    switch (row.kind) {
    case FieldRow::SYMBOL:
        if (message.symbol.len != 0)
            return false;
        message.symbol = readText(parse, out, from, end);
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
    case FieldRow::FLAGGED:
        raiseFlags(message, row.present);
        if (row.valueKind != FieldRow::STRING)
            return readNumber(out, limits, row.token, row.valueKind == FieldRow::DOUBLE, from, end);
        [[fallthrough]];
    case FieldRow::STRING: {
        const bufref text = readText(parse, out, from, end);
        out.add()->setB(row.token, text);
        return true;
    }
    case FieldRow::INTEGER:
    case FieldRow::DOUBLE:
    case FieldRow::NONE:
        break;
    }
    // No field has any other row.
    __builtin_unreachable();
}

/// The row of the field whose number and "=" these bytes start with, by its number; null when there is none.
KVN_TARGET __attribute__((noinline)) FieldRow* findRow(KVNParse& parse, std::uint64_t bytes) {
    const detail::DigitGroup number = detail::decodeEight(bytes);
    FieldRow* const row = number.count != 0 ? parse.row(static_cast<std::uint32_t>(number.value)) : nullptr;
    // Another spelling of the number, with zeros before it, or no "=" behind it.
    return row != nullptr && row->startsWith(bytes) ? row : nullptr;
}

/// The row of the field that starts with these bytes; null when there is none.
template<bool kMixed>
KVN_INLINE FieldRow* rowOf(KVNParse& parse, FieldRow& previous, std::uint64_t bytes, unsigned& misses) {
    if constexpr (!kMixed) {
        if (FieldRow* const row = previous.next; row->startsWith(bytes))
            return row;
        ++misses;
    }
    FieldRow* row = parse.knownRow(bytes);
    if (!row->startsWith(bytes))
        row = findRow(parse, bytes);
    if (!kMixed && row != nullptr)
        previous.next = row;
    return row;
}

/// Where parsing goes on: at a field, or nowhere.
struct Progress {
    enum End { NEXT, FRAME_END, REFUSED };
    End end;
    const char* position;
};

/// One field by the plain rules.
Progress parsePlainField(KVNParse& parse, const char* position) {
    const char* const end = parse.parseField(position);
    const int more = end == nullptr ? -1 : parse.endField(end, position);
    return {more > 0 ? Progress::NEXT : more == 0 ? Progress::FRAME_END : Progress::REFUSED, position};
}

/// The end of a value that no "|" follows. An end byte that is not the frame's last is damage.
Progress endFrame(const KVNParse& parse, const char* end) {
    if (end + 1 == parse.m_frame.end())
        return {Progress::FRAME_END, end + 1};
    parse.abortAt(end, "Data after ETX");
    return {Progress::REFUSED, end};
}

/// Eight bytes from there on, zeros after the frame; it has eight.
KVN_INLINE std::uint64_t loadStart(const char* position, const char* lastEight) {
    return position <= lastEight ? loadEight(position) : loadEight(lastEight) >> (position - lastEight) * 8;
}

/// The end of the field at `position`, and those of the fields behind it in the same block.
struct Ends {
    KVN_INLINE Ends(const Separators& separators, const char* position)
        : block(position), bits(separators.from(position)) {
        // A field that is longer than a block. The frame's end byte ends it at the latest.
        while (bits == 0) {
            block += kBlock;
            bits = separators.from(block);
        }
    }
    [[nodiscard]] KVN_INLINE unsigned count() const { return static_cast<unsigned>(std::popcount(bits)); }
    KVN_INLINE const char* next() {
        const char* const end = block + std::countr_zero(bits);
        bits &= bits - 1;
        return end;
    }

    const char* block;
    std::uint64_t bits;
};

template<bool kMixed>
KVN_INLINE int parseBodyIn(KVNParse& parse, const char* position) {
    Message& message = *parse.m_msg;
    const bufref frame = parse.m_frame;
    const VectorLimits limits(frame);
    const Separators separators(frame);
    const char* const lastEight = frame.end() - sizeof(std::uint64_t);
    Output out(message, limits);
    FieldRow* row = parse.firstRow();
    unsigned misses = 0;
    Progress progress{Progress::NEXT, position};
    while (progress.end == Progress::NEXT) {
        Ends ends(separators, position);
        unsigned fields = std::min(ends.count(), kFieldsPerLook);
        out.reserve(static_cast<std::int32_t>(fields));
        do {
            const char* const end = ends.next();
            FieldRow* const found = rowOf<kMixed>(parse, *row, loadStart(position, lastEight), misses);
            if (found == nullptr ||
                !readValue(parse, message, out, limits, *found, position + found->startSize, end)) {
                out.store();
                progress = parsePlainField(parse, position);
                out.reload();
                position = progress.position;
                break;
            }
            row = found;
            position = end + 1;
            if (*end != '|') {
                progress = endFrame(parse, end);
                break;
            }
        } while (--fields != 0);
    }
    out.store();
    parse.layouts().note(misses, static_cast<unsigned>(message.paircount));
    return progress.end == Progress::FRAME_END ? 0 : -1;
}

KVN_INLINE int parseBodyVector(KVNParse& parse, const char* position) {
    return parse.layouts().areMixed() ? parseBodyIn<true>(parse, position)
                                      : parseBodyIn<false>(parse, position);
}

} // namespace
} // namespace KVNAPI
