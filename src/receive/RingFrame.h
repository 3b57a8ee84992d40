#pragma once

#include <cstddef>
#include <cstdint>

#include "kvnparse/FrameFormat.h"

namespace tivra_internal {

/// The length of the whole frame that starts at `at` and ends before `end`, or 0 when none does. Only the
/// start byte, the length and the end byte are looked at, so that a frame costs the same whatever its size.
/// The marker behind the start byte isn't tested.
[[nodiscard]] inline std::size_t wholeFrameAt(const char* at, const char* end) noexcept {
    const auto remaining = static_cast<std::size_t>(end - at);
    if (remaining < KVNAPI::kKvnFrameExtra || *at != KVNAPI::KVN_START)
        return 0;
    const std::uint32_t length = KVNAPI::frameBodyLength(at);
    if (length > KVNAPI::kKvnMaxBody || length + KVNAPI::kKvnFrameExtra > remaining ||
        at[KVNAPI::kKvnHeaderSize + length] != KVNAPI::ETX)
        return 0;
    return length + KVNAPI::kKvnFrameExtra;
}

} // namespace tivra_internal
