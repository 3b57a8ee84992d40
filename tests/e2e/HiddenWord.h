#pragma once

#include <array>
#include <cstddef>
#include <string>

/// A word of random letters that this process doesn't hold itself: each letter of it is kept another way
/// round.
class HiddenWord {
public:
    explicit HiddenWord(std::size_t length);

    /// Writes it into a file that is the owner's alone, letter after letter.
    void writeTo(const std::string& path) const;
    /// At how many places it stands in the memory of this process.
    [[nodiscard]] std::size_t countInMemory() const;

private:
    static constexpr std::size_t kLongest = 64;

    [[nodiscard]] char letter(std::size_t i) const { return static_cast<char>(m_turned[i] ^ 0xFF); }
    [[nodiscard]] std::size_t countIn(const char* bytes, std::size_t length) const;

    std::array<unsigned char, kLongest> m_turned{};
    const std::size_t m_length;
};
