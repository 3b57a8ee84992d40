#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_sim {

/// One request as it came from a client.
struct Request {
    /// When its last byte was read.
    std::chrono::system_clock::time_point time;
    /// Number of the connection it came on; the hub counts them from 1.
    std::uint64_t connection = 0;
    /// The tag, -1 when the text holds none.
    std::int64_t tag = -1;
    /// The first command word of the text, empty when there is none.
    std::string command;
    /// The whole text, byte for byte.
    std::string text;

    /// The value of the first pair of `token`, empty when there is none.
    [[nodiscard]] std::string value(int token) const;
    [[nodiscard]] bool has(int token) const;
    /// The value as a number, `fallback` when there is none or it is not one.
    [[nodiscard]] std::int64_t number(int token, std::int64_t fallback = -1) const;
};

} // namespace tivra_sim
