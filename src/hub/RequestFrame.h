#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kvnparse/FrameFormat.h"

namespace tivra_internal {

/// The longest request text that a hub takes.
inline constexpr std::size_t kMaxRequestText = 8184;
/// What a frame has beside its text, and the zero byte after it.
inline constexpr std::size_t kFrameOverhead = KVNAPI::kKvnFrameExtra + 1;

/// Frames `len` bytes of text into `out`, which has space for them and kFrameOverhead more; returns the
/// frame's length.
[[nodiscard]] inline int buildKvnMsg(const char* text, std::size_t len, char* out) {
    KVNAPI::writeFrameHeader(out, static_cast<std::uint32_t>(len));
    std::memcpy(out + KVNAPI::kKvnHeaderSize, text, len);
    out[KVNAPI::kKvnHeaderSize + len] = KVNAPI::ETX;
    out[KVNAPI::kKvnFrameExtra + len] = '\0';
    return static_cast<int>(len + KVNAPI::kKvnFrameExtra);
}

} // namespace tivra_internal
