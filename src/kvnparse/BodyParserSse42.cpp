#include "kvnparse/BodyParser.h"
#include "kvnparse/BodyParserTables.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("sse4.2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each "|" and end byte of the 64 bytes.
KVN_TARGET inline std::uint64_t separatorsOf(const char* from) {
    std::uint64_t bits = 0;
    for (unsigned part = 0; part < 4; ++part) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + part * 16));
        const __m128i found = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(0x7C)),
                                           _mm_cmpeq_epi8(bytes, _mm_set1_epi8(0x03)));
        bits |= static_cast<std::uint64_t>(static_cast<std::uint16_t>(_mm_movemask_epi8(found))) << part * 16;
    }
    return bits;
}

KVN_TARGET inline __m128i loadSame(const std::uint8_t* bytes) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(bytes));
}

KVN_TARGET inline std::uint64_t bitsOf(__m128i found) {
    return static_cast<std::uint16_t>(_mm_movemask_epi8(found));
}

/// The same, and the bits of digits.
KVN_TARGET inline ByteBits byteBitsOf(const char* from) {
    ByteBits bits{};
    for (unsigned part = 0; part < 4; ++part) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + part * 16));
        const __m128i values = _mm_sub_epi8(bytes, loadSame(kByteTables.zeroes));
        const __m128i separators = _mm_or_si128(_mm_cmpeq_epi8(bytes, loadSame(kByteTables.bars)),
                                                _mm_cmpeq_epi8(bytes, loadSame(kByteTables.ends)));
        const __m128i digits = _mm_cmpeq_epi8(_mm_min_epu8(values, loadSame(kByteTables.nines)), values);
        bits.separators |= bitsOf(separators) << part * 16;
        bits.digits |= bitsOf(digits) << part * 16;
    }
    return bits;
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

#include "kvnparse/BodyParserLazy.inl"

namespace KVNAPI {

KVN_TARGET int parseBodySse42(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

KVN_TARGET int parseLazilySse42(KVNParse& parse, const char* position) {
    return parseBodyLazily(parse, position);
}

} // namespace KVNAPI
