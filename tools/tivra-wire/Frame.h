#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tivra_wire {

/// How messages stand in a stream: frames with token numbers, lines with names, frames inside a zlib stream,
/// a capture; and what can only be written: a JSON object per line, CSV.
enum class Form { Kvn, Vkvn, Zkvn, Capture, Json, Csv };

/// One frame or line of a stream, whole, and where it stands.
struct Frame {
    std::string_view bytes; ///< valid until the next one is read
    std::uint64_t offset = 0;
    std::uint64_t number = 0;                ///< the first is 1
    std::optional<std::int64_t> nanoseconds; ///< since the Unix epoch, when it was received; of a capture
    std::string_view note;                   ///< of a capture, in place of bytes
    bool lacksEnd = false;                   ///< the last line of a file may; `bytes` has one all the same
};

/// What is wrong in a stream, and where: the byte at `offset` is not what the format wants there. Offsets of
/// a zlib stream count the bytes that come out of it.
class Fault : public std::runtime_error {
public:
    Fault(std::uint64_t offset, const std::string& expected, const std::string& found)
        : std::runtime_error("expected " + expected + ", found " + found), m_offset(offset) {}

    [[nodiscard]] std::uint64_t offset() const noexcept { return m_offset; }

private:
    std::uint64_t m_offset;
};

inline constexpr char kEndOfInput[] = "the end of the input";

/// A byte for people: 0x41 'A'.
[[nodiscard]] std::string byteText(char byte);

/// Bytes for people: what is no printable ASCII stands as \xHH.
[[nodiscard]] std::string printable(std::string_view bytes);

} // namespace tivra_wire
