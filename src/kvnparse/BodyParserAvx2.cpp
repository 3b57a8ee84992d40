#include "kvnparse/BodyParser.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("avx2,bmi,bmi2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each of 64 bytes.
struct BlockMasks {
    std::uint64_t separators; ///< "=", "|" or the end byte
    std::uint64_t others;     ///< no digit
};

/// The separator with the low half of a byte, so that one shuffle and one comparison find all three.
KVN_TARGET inline __m256i separatorsByLowHalf() {
    return _mm256_broadcastsi128_si256(_mm_setr_epi8(-128, -128, -128, 0x03, -128, -128, -128, -128, -128,
                                                     -128, -128, -128, 0x7C, 0x3D, -128, -128));
}

KVN_TARGET inline BlockMasks classify(const char* from) {
    BlockMasks masks{0, 0};
    for (unsigned part = 0; part < 2; ++part) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + part * 32));
        const __m256i separators =
            _mm256_cmpeq_epi8(_mm256_shuffle_epi8(separatorsByLowHalf(), bytes), bytes);
        const __m256i values = _mm256_sub_epi8(bytes, _mm256_set1_epi8(0x30));
        const __m256i digits = _mm256_cmpeq_epi8(_mm256_min_epu8(values, _mm256_set1_epi8(9)), values);
        masks.separators |=
            static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(separators)))
            << part * 32;
        masks.others |= static_cast<std::uint64_t>(~static_cast<std::uint32_t>(_mm256_movemask_epi8(digits)))
                        << part * 32;
    }
    return masks;
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

namespace KVNAPI {

KVN_TARGET int parseBodyAvx2(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

} // namespace KVNAPI
