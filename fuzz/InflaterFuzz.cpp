// Arbitrary streams, and streams made of arbitrary bytes and damaged, through ISA-L. Judged call by call by
// zlib.
#include "FuzzCheck.h"
#include "kvnparse/Deflater.h"
#include "kvnparse/InflaterPair.h"

#include "kvnparse/IsalInflater.h"

#include <cstdint>
#include <string>
#include <string_view>

#include <zlib.h>

namespace {

/// Bits of the first byte of an input; two more choose the level of compression, and two the flush.
enum Mode : unsigned { RAW = 1, DAMAGE = 2, REPEAT = 64, FINISH = 128 };

/// The bytes, or many copies of them, so that the window fills.
std::string deflated(std::string_view plain, unsigned mode, unsigned seed) {
    constexpr int LEVELS[] = {0, 1, 6, 9};
    constexpr int FLUSHES[] = {Z_NO_FLUSH, Z_SYNC_FLUSH, Z_BLOCK, Z_FULL_FLUSH};
    kvnparse_test::Deflater deflater(LEVELS[mode >> 2 & 3]);
    std::string out;
    for (unsigned left = (mode & REPEAT) != 0 ? 1 + seed % 24 : 1; left > 0; --left)
        for (const std::string_view piece : fuzz::piecesOf(plain, seed + left))
            out += deflater(piece, FLUSHES[mode >> 4 & 3]);
    return out + deflater({}, (mode & FINISH) != 0 ? Z_FINISH : Z_SYNC_FLUSH);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const unsigned seed = input.byte();
    std::string stream = (mode & RAW) != 0 ? std::string(input.rest()) : deflated(input.rest(), mode, seed);
    if ((mode & DAMAGE) != 0 && !stream.empty())
        stream[seed * 7919 % stream.size()] ^= static_cast<char>(1U << seed % 8);
    static KVNAPI::IsalInflater isal;
    static kvnparse_test::InflaterPair pair(isal);
    fuzz::expectEqual("difference", pair.compare(fuzz::piecesOf(stream, seed), seed), "");
    return 0;
}
