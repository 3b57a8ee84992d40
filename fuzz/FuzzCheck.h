#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// Ends the program, as a fuzzer expects of a finding, unless the texts are equal.
void expectEqual(std::string_view what, std::string_view ours, std::string_view reference);

/// Bytes in a heap block of exactly their size, so that a sanitizer sees any access outside of them.
class ExactBytes {
public:
    explicit ExactBytes(std::size_t size) : m_bytes(std::make_unique<char[]>(size)), m_size(size) {}
    explicit ExactBytes(std::string_view bytes) : ExactBytes(bytes.size()) {
        bytes.copy(data(), bytes.size());
    }

    [[nodiscard]] char* data() { return m_bytes.get(); }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size;
};

/// The input of a run: some bytes that steer it, and the rest.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

    /// The next byte, 0 at the end.
    [[nodiscard]] unsigned byte();
    /// The next bytes, as many as there are.
    [[nodiscard]] std::string_view take(std::size_t count);
    [[nodiscard]] std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

/// Cuts a stream into pieces as a socket might; the same seed gives the same pieces.
[[nodiscard]] std::vector<std::string_view> piecesOf(std::string_view stream, unsigned seed);

} // namespace fuzz
