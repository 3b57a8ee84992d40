#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

/// The numbers of the capture format, as docs/capture-format.md tells them.
namespace tivra_capture {

/// A file that can't be written or isn't what it should be; what() names the file, the place and the fault.
class CaptureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One message of a capture.
struct Message {
    std::int64_t nanoseconds = 0; ///< since the Unix epoch, when it was received
    std::string_view body;        ///< as it stood between the header and the end of its frame
};

/// What the index says of a block.
struct BlockPlace {
    std::uint64_t offset = 0; ///< of its header, from the start of the file
    std::int64_t firstNanoseconds = 0;
    std::uint32_t messages = 0;
};

inline constexpr std::string_view kFileMagic = "TIVRACAP";
inline constexpr std::uint32_t VERSION = 1;
inline constexpr std::size_t kFileHeaderSize = 16;

inline constexpr std::string_view kBlockMagic = "BLCK";
inline constexpr std::size_t kBlockHeaderSize = 32;
inline constexpr std::size_t kMessageHeaderSize = 12;

inline constexpr std::string_view kIndexMagic = "INDX";
inline constexpr std::size_t kIndexHeaderSize = 8;
inline constexpr std::size_t kIndexEntrySize = 20;
inline constexpr std::string_view kTrailerMagic = "TIVRAEND";
inline constexpr std::size_t kTrailerSize = 20;

/// The longest body, which is the longest that the feed sends.
inline constexpr std::size_t kMaxBody = 262144;
/// Bytes of messages after which a block is written.
inline constexpr std::size_t kBlockSize = 262144;
/// What a block can't exceed, before and after compression.
inline constexpr std::size_t kMaxBlock = kBlockSize + kMessageHeaderSize + kMaxBody;

/// Numbers stand with their highest byte first.
inline void appendNumber(std::string& out, std::uint64_t value, unsigned bytes) {
    for (unsigned shift = bytes * 8; shift > 0; shift -= 8)
        out.push_back(static_cast<char>(value >> (shift - 8) & 0xFF));
}

[[nodiscard]] inline std::uint64_t numberAt(std::string_view bytes, std::size_t offset, unsigned size) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < size; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

} // namespace tivra_capture
