#pragma once

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

/// First byte of a frame.
inline constexpr char KVN_START = 0x04;
/// Second byte of a frame.
inline constexpr char kKvnMark = 0x20;
/// Byte behind the body, the last one of a frame.
inline constexpr char ETX = 0x03;

/// Start byte, marker and the body length, which is unsigned and has its most significant byte first.
inline constexpr std::size_t kKvnHeaderSize = 6;
/// What a frame has beside its body: the header and the end byte.
inline constexpr std::size_t kKvnFrameExtra = kKvnHeaderSize + 1;

/// The longest body that the library takes from a hub.
inline constexpr std::size_t kKvnMaxBody = 262'144;

/// The body length that a frame's header states; the 6 bytes of the header must be readable.
[[nodiscard]] inline std::uint32_t frameBodyLength(const char* frame) noexcept {
    const auto byteAt = [frame](int i) -> std::uint32_t { return static_cast<unsigned char>(frame[i]); };
    return byteAt(2) << 24 | byteAt(3) << 16 | byteAt(4) << 8 | byteAt(5);
}

/// Writes the 6 bytes in front of a body of that length.
inline void writeFrameHeader(char* frame, std::uint32_t bodyLength) noexcept {
    frame[0] = KVN_START;
    frame[1] = kKvnMark;
    for (int i = 0; i < 4; ++i)
        frame[2 + i] = static_cast<char>(bodyLength >> (24 - 8 * i) & 0xff);
}

} // namespace KVNAPI
