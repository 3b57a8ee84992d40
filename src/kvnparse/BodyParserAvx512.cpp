#include "kvnparse/BodyParser.h"

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

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

namespace KVNAPI {

KVN_TARGET int parseBodyAvx512(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

} // namespace KVNAPI
