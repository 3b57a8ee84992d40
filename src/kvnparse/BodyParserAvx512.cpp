#include "kvnparse/BodyParser.h"
#include "kvnparse/BodyParserTables.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx2,bmi,bmi2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each "|" and end byte of the 64 bytes.
KVN_TARGET inline std::uint64_t separatorsOf(const char* from) {
    const __m512i bytes = _mm512_loadu_si512(from);
    return _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(0x7C)) |
           _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(0x03));
}

/// The same, and the bits of digits.
KVN_TARGET inline ByteBits byteBitsOf(const char* from) {
    const __m512i bytes = _mm512_loadu_si512(from);
    const __m512i values = _mm512_sub_epi8(bytes, _mm512_set1_epi8(0x30));
    return {_mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(0x7C)) |
                _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(0x03)),
            _mm512_cmple_epu8_mask(values, _mm512_set1_epi8(9))};
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

#include "kvnparse/BodyParserLazy.inl"

namespace KVNAPI {

KVN_TARGET int parseBodyAvx512(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

KVN_TARGET int parseLazilyAvx512(KVNParse& parse, const char* position) {
    return parseBodyLazily(parse, position);
}

} // namespace KVNAPI
