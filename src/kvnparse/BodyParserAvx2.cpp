#include "kvnparse/BodyParser.h"
#include "kvnparse/BodyParserTables.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("avx2,bmi,bmi2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each "|" and end byte of the 64 bytes.
KVN_TARGET inline std::uint64_t separatorsOf(const char* from) {
    std::uint64_t bits = 0;
    for (unsigned part = 0; part < 2; ++part) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + part * 32));
        const __m256i found = _mm256_or_si256(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(0x7C)),
                                              _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(0x03)));
        bits |= static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(found)))
                << part * 32;
    }
    return bits;
}

KVN_TARGET inline __m256i loadSame(const std::uint8_t* bytes) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(bytes));
}

KVN_TARGET inline std::uint64_t bitsOf(__m256i found) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(found));
}

/// The same, and the bits of digits.
KVN_TARGET inline ByteBits byteBitsOf(const char* from) {
    ByteBits bits{};
    for (unsigned part = 0; part < 2; ++part) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + part * 32));
        const __m256i values = _mm256_sub_epi8(bytes, loadSame(kByteTables.zeroes));
        const __m256i separators = _mm256_or_si256(_mm256_cmpeq_epi8(bytes, loadSame(kByteTables.bars)),
                                                   _mm256_cmpeq_epi8(bytes, loadSame(kByteTables.ends)));
        const __m256i digits =
            _mm256_cmpeq_epi8(_mm256_min_epu8(values, loadSame(kByteTables.nines)), values);
        bits.separators |= bitsOf(separators) << part * 32;
        bits.digits |= bitsOf(digits) << part * 32;
    }
    return bits;
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

#include "kvnparse/BodyParserLazy.inl"

namespace KVNAPI {

KVN_TARGET int parseBodyAvx2(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

KVN_TARGET int parseLazilyAvx2(KVNParse& parse, const char* position) {
    return parseBodyLazily(parse, position);
}

} // namespace KVNAPI
