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

#include "kvnparse/BodyParserTables.h"
#include "kvnparse/Denom.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define KVN_INLINE KVN_TARGET __attribute__((always_inline)) inline

namespace KVNAPI {
namespace {

/// Bytes that are indexed at a time; a field that is longer is read byte by byte.
constexpr std::size_t kStretch = 512;
constexpr std::size_t kBlock = 64;
/// Positions are written this many at a time, past the last one.
constexpr std::size_t kSurplus = 4;

/// Where "|" and the end byte stand in a stretch of the frame, in order: each is the end of a field.
struct StretchIndex {
    const char* ends[kStretch + kSurplus];
};

/// Adds the separators of one block. Writing a fixed number, of which the next block overwrites the surplus,
/// is quicker than ending at each block's own count.
KVN_INLINE const char** addSeparators(const char** out, std::uint64_t bits, const char* block) {
    const char** const end = out + std::popcount(bits);
    do {
        for (std::size_t i = 0; i < kSurplus; ++i) {
            out[i] = block + std::countr_zero(bits);
            bits &= bits - 1;
        }
        out += kSurplus;
    } while (out < end);
    return end;
}

/// The last block of a frame, which is shorter than the vectors: read together with what stands before it, or
/// from a copy when the whole frame is that short.
KVN_INLINE std::uint64_t separatorsOfTail(const char* from, std::size_t size, bufref frame) {
    if (frame.len >= kBlock)
        return separatorsOf(from + size - kBlock) >> (kBlock - size);
    char copy[kBlock] = {};
    std::memcpy(copy, from, size);
    return separatorsOf(copy);
}

/// Fills the index for the stretch from there; returns behind the last end.
KVN_INLINE const char** indexStretch(StretchIndex& index, const char* from, bufref frame) {
    const auto left = static_cast<std::size_t>(frame.end() - from);
    const std::size_t size = left < kStretch ? left : kStretch;
    const char* const end = from + size;
    const char** out = index.ends;
    for (; static_cast<std::size_t>(end - from) >= kBlock; from += kBlock)
        out = addSeparators(out, separatorsOf(from), from);
    if (from != end)
        out = addSeparators(out, separatorsOfTail(from, static_cast<std::size_t>(end - from), frame), from);
    return out;
}

KVN_INLINE std::uint64_t loadEight(const char* from) {
    std::uint64_t bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

KVN_INLINE __m128i loadVector(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

/// Sixteen digit values, most significant first, as two numbers of eight digits in the lowest two of four.
KVN_INLINE __m128i joinDigits(__m128i digits) {
    const __m128i twos = _mm_maddubs_epi16(digits, loadVector(kDigitTables.byTen));
    const __m128i fours = _mm_madd_epi16(twos, loadVector(kDigitTables.byHundred));
    const __m128i packed = _mm_packus_epi32(fours, _mm_setzero_si128());
    return _mm_madd_epi16(packed, loadVector(kDigitTables.byTenThousand));
}

/// The number in sixteen digit values.
KVN_INLINE std::uint64_t sixteenDigits(__m128i digits) {
    const auto parts = static_cast<std::uint64_t>(_mm_cvtsi128_si64(joinDigits(digits)));
    return (parts & 0xFFFFFFFF) * 100000000 + (parts >> 32);
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
    const __m128i digits =
        _mm_and_si128(_mm_sub_epi8(loadVector(end - kVector), loadVector(kDigitTables.zeroes)),
                      loadVector(kDigitTables.lastBytes + size));
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
    const __m128i digits =
        _mm_and_si128(_mm_sub_epi8(loadVector(end - kVector), loadVector(kDigitTables.zeroes)),
                      loadVector(kDigitTables.lastBytes + size));
    const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(digits, loadVector(kDigitTables.nines)), digits);
    const std::uint32_t others = static_cast<std::uint32_t>(_mm_movemask_epi8(isDigit)) ^ 0xFFFF;
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
    const std::uint64_t all = sixteenDigits(_mm_shuffle_epi8(digits, loadVector(place.closeUp)));
    __extension__ using Wide = unsigned __int128;
    const std::uint64_t wholePart =
        static_cast<std::uint64_t>(static_cast<Wide>(all) * place.factor >> 64) >> place.shift;
    const std::uint64_t fractionPart = all - wholePart * place.power;
    result = static_cast<double>(static_cast<std::int64_t>(wholePart)) +
             static_cast<double>(static_cast<std::int64_t>(fractionPart)) * place.fraction;
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

/// Where the message is written to; its own fields follow when the fields of a stretch are done.
class Output {
public:
    KVN_INLINE explicit Output(Message& message) : m_message(message) { reload(); }

    /// Takes over what others have added.
    KVN_INLINE void reload() {
        m_pair = m_message.pairs + m_message.paircount;
        m_area = m_message.nextArea;
        m_lastVector = m_message.endArea - kVector;
    }
    KVN_INLINE void store() {
        m_message.paircount = static_cast<std::int32_t>(m_pair - m_message.pairs);
        m_message.nextArea = m_area;
    }

    /// How many pairs can be added without growth.
    [[nodiscard]] KVN_INLINE std::ptrdiff_t room() const { return m_message.pairsEnd() - m_pair; }
    [[nodiscard]] KVN_INLINE TVPair* add() { return m_pair++; }

    /// Copies a text, with a whole vector readable at its start, behind what the message holds. False when
    /// that takes more than one vector.
    KVN_INLINE bool copyText(const char* from, std::size_t size, bufref& text) {
        if (size > kVector || m_area > m_lastVector)
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(m_area), loadVector(from));
        text = bufref(m_area, size);
        m_area += size;
        return true;
    }

private:
    Message& m_message;
    TVPair* m_pair;
    char* m_area;
    const char* m_lastVector;
};

/// Which vectors lie within a frame: those that end from one place on and those that start up to another.
struct VectorLimits {
    KVN_INLINE explicit VectorLimits(bufref frame)
        : firstEnd(frame.len >= kVector ? frame.buf + kVector : frame.end())
        , lastStart(frame.len >= kVector ? frame.end() - kVector : nullptr) {}

    const char* firstEnd;
    const char* lastStart;
};

/// Reads the value of a known token. False when it is not an ordinary one; nothing has been changed then.
KVN_INLINE bool readValue(KVNParse& parse, Message& message, Output& out, const VectorLimits& limits,
                          const FieldRow& row, const char* from, const char* end) {
    std::int64_t number = 0;
    // Most fields are numbers, which need no jump through a table.
    if (row.kind == FieldRow::INTEGER) {
        if (!readInteger(from, end, number))
            return false;
        out.add()->setI(row.token, number);
        return true;
    }
    if (row.kind == FieldRow::DOUBLE) {
        double decimal = 0.0;
        if (end < limits.firstEnd || !readSignedDecimal(from, end, decimal))
            return false;
        out.add()->setD(row.token, decimal);
        return true;
    }
    switch (row.kind) {
    case FieldRow::STRING: {
        bufref text;
        if (from > limits.lastStart || !out.copyText(from, static_cast<std::size_t>(end - from), text))
            return false;
        out.add()->setB(row.token, text);
        return true;
    }
    case FieldRow::SYMBOL:
        return message.symbol.len == 0 && from <= limits.lastStart &&
               out.copyText(from, static_cast<std::size_t>(end - from), message.symbol);
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
    case FieldRow::INTEGER:
    case FieldRow::DOUBLE:
    case FieldRow::NONE:
        break;
    }
    // No field has any other row.
    __builtin_unreachable();
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
        if ((bytes & row->startMask) == row->start)
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

/// Reads the fields from `position` that lie wholly within the stretch there; `row` moves along.
KVN_INLINE Progress parseStretch(KVNParse& parse, const char* const* next,
                                 const char* const* const stretchEnd, const char* position, FieldRow*& row) {
    Message& message = *parse.m_msg;
    const bufref frame = parse.m_frame;
    const VectorLimits limits(frame);
    const char* const lastEight = frame.end() - 8;
    Output out(message);
    FieldRow* known = row;
    Progress progress{Progress::NEXT, position};
    while (progress.end == Progress::NEXT && next != stretchEnd) {
        // Fields beyond the room for their pairs go the plain way, which makes more.
        const char* const* const last = stretchEnd - next > out.room() ? next + out.room() : stretchEnd;
        while (next != last) {
            const std::uint64_t bytes = position <= lastEight
                                            ? loadEight(position)
                                            : loadEight(lastEight) >> (position - lastEight) * 8;
            FieldRow* const found = rowOf(parse, *known, bytes);
            if (found == nullptr)
                break;
            known = found;
            const char* const end = *next;
            if (!readValue(parse, message, out, limits, *known, position + known->startSize, end))
                break;
            if (known->present != 0)
                raiseFlags(message, known->present);
            position = end + 1;
            ++next;
            if (*end != '|') {
                progress = endFrame(parse, end);
                break;
            }
        }
        if (progress.end != Progress::NEXT || next == stretchEnd)
            break;
        out.store();
        progress = parsePlainField(parse, position);
        out.reload();
        position = progress.position;
        while (next != stretchEnd && *next < position)
            ++next;
    }
    out.store();
    row = known;
    return {progress.end, position};
}

KVN_INLINE int parseBodyVector(KVNParse& parse, const char* position) {
    StretchIndex index;
    FieldRow* row = parse.firstRow();
    for (;;) {
        const char* const* const end = indexStretch(index, position, parse.m_frame);
        Progress progress = parseStretch(parse, index.ends, end, position, row);
        if (progress.end == Progress::NEXT && progress.position == position)
            progress = parsePlainField(parse, position); // longer than a stretch
        if (progress.end != Progress::NEXT)
            return progress.end == Progress::FRAME_END ? 0 : -1;
        position = progress.position;
    }
}

} // namespace
} // namespace KVNAPI
