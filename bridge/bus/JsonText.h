#pragma once

#include <feed/Value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

// Parts of JSON texts, written without an object tree: a bridge writes millions of values a second.

/// A text in quotes. Bytes that aren't UTF-8 become U+FFFD.
void appendQuoted(std::string& out, std::string_view text);
/// A floating number has a point or an exponent, so that a reader can tell it from a whole one; what isn't a
/// number is a text, "nan", "inf" or "-inf".
void appendValue(std::string& out, const tivra::Value& value);
/// "2013-10-07T13:30:00.123456Z", without quotes.
void appendTime(std::string& out, std::chrono::system_clock::time_point time);
void appendNumber(std::string& out, std::uint64_t number);

// The same where there is room already; each returns the end.

/// The most that putValue() may need.
[[nodiscard]] std::size_t mostBytes(const tivra::Value& value);
[[nodiscard]] char* putValue(char* to, const tivra::Value& value);
/// Up to 20 bytes.
[[nodiscard]] char* putNumber(char* to, std::uint64_t number);

} // namespace tivra_bus
