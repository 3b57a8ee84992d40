#include "kvnparse/BodyParser.h"

#include <cstdint>

#include <immintrin.h>

#define KVN_TARGET __attribute__((target("sse4.2,popcnt")))

namespace KVNAPI {
namespace {

/// A bit for each of 64 bytes.
struct BlockMasks {
    std::uint64_t separators; ///< "=", "|" or the end byte
    std::uint64_t others;     ///< no digit
};

/// The separator with the low half of a byte, so that one shuffle and one comparison find all three.
KVN_TARGET inline __m128i separatorsByLowHalf() {
    return _mm_setr_epi8(-128, -128, -128, 0x03, -128, -128, -128, -128, -128, -128, -128, -128, 0x7C, 0x3D,
                         -128, -128);
}

KVN_TARGET inline BlockMasks classify(const char* from) {
    BlockMasks masks{0, 0};
    for (unsigned part = 0; part < 4; ++part) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + part * 16));
        const __m128i separators = _mm_cmpeq_epi8(_mm_shuffle_epi8(separatorsByLowHalf(), bytes), bytes);
        const __m128i values = _mm_sub_epi8(bytes, _mm_set1_epi8(0x30));
        const __m128i digits = _mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values);
        masks.separators |=
            static_cast<std::uint64_t>(static_cast<std::uint16_t>(_mm_movemask_epi8(separators)))
            << part * 16;
        masks.others |= static_cast<std::uint64_t>(static_cast<std::uint16_t>(~_mm_movemask_epi8(digits)))
                        << part * 16;
    }
    return masks;
}

} // namespace
} // namespace KVNAPI

#include "kvnparse/BodyParserVector.inl"

namespace KVNAPI {

KVN_TARGET int parseBodySse42(KVNParse& parse, const char* position) {
    return parseBodyVector(parse, position);
}

} // namespace KVNAPI
