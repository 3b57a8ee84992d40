#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tivra_python {

/// Bits as Arrow keeps them, the first one lowest. One thread at a time.
class Bitmap {
public:
    void append(bool bit) {
        if (m_size % 8 == 0)
            m_bytes.push_back(0);
        if (bit)
            m_bytes.back() = static_cast<std::uint8_t>(m_bytes.back() | 1U << m_size % 8);
        ++m_size;
    }
    /// Appends clear bits up to that size.
    void padTo(std::size_t size) {
        if (size <= m_size)
            return;
        m_bytes.resize((size + 7) / 8, 0);
        m_size = size;
    }

    void set(std::size_t i) noexcept {
        m_bytes[i / 8] = static_cast<std::uint8_t>(m_bytes[i / 8] | 1U << i % 8);
    }

    [[nodiscard]] std::size_t size() const noexcept { return m_size; }
    [[nodiscard]] bool operator[](std::size_t i) const noexcept { return (m_bytes[i / 8] >> i % 8 & 1) != 0; }
    [[nodiscard]] const std::uint8_t* data() const noexcept { return m_bytes.data(); }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_size = 0;
};

} // namespace tivra_python
