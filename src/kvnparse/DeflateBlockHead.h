#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace KVNAPI {

/// Bytes of a deflate stream from the place where a block begins, which may lie inside a byte.
struct DeflateBits {
    std::uint64_t first = 0; ///< the bits before `bytes`, lowest first; zeros above them
    unsigned count = 0;      ///< how many they are
    std::span<const std::uint8_t> bytes{};
};

/// The beginning of a block, up to where its content begins.
struct DeflateBlockHead {
    enum class Standing { INCOMPLETE, SOUND, REFUSED };
    enum class Kind { STORED, FIXED_CODES, OWN_CODES };

    Standing standing = Standing::INCOMPLETE;
    Kind kind = Kind::STORED;
    bool isLast = false;      ///< the final block of its stream
    unsigned storedBytes = 0; ///< that follow, not compressed
    std::size_t bytes = 0;    ///< how many of `DeflateBits::bytes` it takes, the last of them perhaps in part
    std::uint64_t rest = 0;   ///< the bits of these that come after it, as in `DeflateBits::first`
    unsigned restCount = 0;   ///< how many they are
    const char* reason = "";  ///< why it was refused
};

/// Reads it as zlib does: refuses whatever zlib refuses, at the same bit and for the same reason. Some
/// decoders are content with codes that leave bit patterns without a meaning, and so let a damaged stream
/// pass.
[[nodiscard]] DeflateBlockHead readDeflateBlockHead(const DeflateBits& bits);

} // namespace KVNAPI
