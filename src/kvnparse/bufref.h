#pragma once

#include <cstdint>
#include <string_view>

namespace KVNAPI {

using bufref_len_t = std::uint64_t;

/// A pointer and a length into a byte buffer: never owning, never zero-terminated.
struct bufref {
    const char* buf = nullptr;
    bufref_len_t len = 0;

    constexpr bufref() noexcept = default;
    constexpr bufref(const char* bytes, bufref_len_t length) noexcept : buf(bytes), len(length) {}

    [[nodiscard]] constexpr const char* end() const noexcept { return buf + len; }
    [[nodiscard]] constexpr std::string_view view() const noexcept { return {buf, len}; }

    /// The bytes as room to write. Only for a bufref that its maker handed over as an output area.
    [[nodiscard]] char* room() const noexcept { return const_cast<char*>(buf); }
};

} // namespace KVNAPI
