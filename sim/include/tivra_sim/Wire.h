#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_sim {

/// Bytes that a frame adds to its body: six before it and one behind it.
inline constexpr std::size_t FRAME_OVERHEAD = 7;

/// Wraps a body in a frame: 04 20, the body's length in four bytes with the highest first, the body, 03.
[[nodiscard]] std::string encodeFrame(std::string_view body);

/// The same behind what `out` already holds.
void appendFrame(std::string& out, std::string_view body);

/// A frame whose length field says `claimedLength` whatever the body is, for tests of a receiver's defences.
[[nodiscard]] std::string encodeFrameWithLength(std::string_view body, std::uint32_t claimedLength);

/// One "token=value" of a body or a request text, looking into it.
struct Pair {
    int token = 0;
    std::string_view value;
};

/// Cuts a body or request text at "|" and "=". Stretches without a decimal token and "=" are left out.
[[nodiscard]] std::vector<Pair> splitPairs(std::string_view body);

/// The value of the first pair of `token`, or an empty view. `found`, if given, tells an empty value from
/// none.
[[nodiscard]] std::string_view findValue(std::string_view body, int token, bool* found = nullptr);

/// A body under construction, in the order of the calls.
class Record {
public:
    Record() = default;

    /// A record of `symbol` on `source`, with the permission set to the source, as a hub sends it.
    Record(int source, std::string_view symbol);

    Record& add(int token, std::string_view value);
    Record& add(int token, const char* value) { return add(token, std::string_view(value)); }
    Record& add(int token, const std::string& value) { return add(token, std::string_view(value)); }
    Record& add(int token, int value) { return add(token, static_cast<long long>(value)); }
    Record& add(int token, long value) { return add(token, static_cast<long long>(value)); }
    Record& add(int token, long long value);

    [[nodiscard]] const std::string& body() const noexcept { return m_body; }
    [[nodiscard]] std::string frame() const { return encodeFrame(m_body); }
    [[nodiscard]] bool empty() const noexcept { return m_body.empty(); }

private:
    std::string m_body;
};

/// Cuts a stream of bytes into frame bodies. It is written without any code of the client library, so that
/// the two can be held against each other. One thread at a time.
class FrameReader {
public:
    enum class Result {
        Frame,      ///< `body` holds the next body
        Incomplete, ///< more bytes are needed
        Invalid     ///< the bytes cannot be a frame; error() says why, and the reader stays there
    };

    /// `maxBody` is the longest body that is waited for.
    explicit FrameReader(std::size_t maxBody = std::size_t{1} << 20);

    void push(std::string_view bytes);

    /// On Result::Frame `body` looks into the reader and is valid until the next call.
    [[nodiscard]] Result next(std::string_view& body);

    [[nodiscard]] const std::string& error() const noexcept { return m_error; }
    [[nodiscard]] std::size_t pending() const noexcept { return m_buffer.size() - m_position; }
    void clear();

private:
    std::size_t m_maxBody;
    std::size_t m_position = 0;
    std::string m_buffer;
    std::string m_error;
};

} // namespace tivra_sim
