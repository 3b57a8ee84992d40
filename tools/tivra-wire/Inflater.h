#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <zlib.h>

namespace tivra_wire {

/// One zlib stream, inflated piece by piece.
class Inflater {
public:
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// Takes from `in` and fills `out` as far as both reach; `in` is left with what was not taken. Returns
    /// the bytes written. Throws Fault for what is no zlib stream.
    [[nodiscard]] std::size_t inflate(std::string_view& in, char* out, std::size_t room);
    [[nodiscard]] bool isAtEnd() const { return m_isAtEnd; }

private:
    z_stream m_stream{};
    std::uint64_t m_taken = 0;   ///< compressed bytes so far
    std::uint64_t m_written = 0; ///< bytes inflated so far
    bool m_isAtEnd = false;
};

} // namespace tivra_wire
