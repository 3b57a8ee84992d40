#include "kvnparse/BodyParser.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx2,bmi,bmi2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each of 64 bytes.
struct BlockMasks {
    std::uint64_t separators; ///< "=", "|" or the end byte
    std::uint64_t others;     ///< no digit
};

KVN_TARGET inline BlockMasks classify(const char* from) {
    const __m512i bytes = _mm512_loadu_si512(from);
    const auto equal = [bytes](char byte)
                           KVN_TARGET { return _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(byte)); };
    const __m512i values = _mm512_sub_epi8(bytes, _mm512_set1_epi8(0x30));
    return {equal(0x03) | equal(0x7C) | equal(0x3D), _mm512_cmpgt_epu8_mask(values, _mm512_set1_epi8(9))};
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

namespace KVNAPI {

KVN_TARGET int parseBodyAvx512(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

} // namespace KVNAPI
