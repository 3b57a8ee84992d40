#pragma once

#include <feed/Value.h>

#include <algorithm>
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
void appendTime(std::string& out, tivra::TimePoint time);
void appendTime(std::string& out, std::chrono::system_clock::time_point time);
void appendNumber(std::string& out, std::uint64_t number);

// The same where there is room already; each returns the end.

/// The most that a number or a time takes.
inline constexpr std::size_t kMostPut = 40;
[[nodiscard]] char* putNumber(char* to, std::uint64_t number);
[[nodiscard]] char* putInteger(char* to, std::int64_t number);
[[nodiscard]] char* putDouble(char* to, double number);
/// As it stands, without quotes.
[[nodiscard]] inline char* putText(char* to, std::string_view text) {
    return std::copy(text.begin(), text.end(), to);
}
/// In quotes.
[[nodiscard]] char* putTime(char* to, tivra::TimePoint time);
/// A byte that has to be escaped takes six.
[[nodiscard]] char* putQuoted(char* to, std::string_view text);

} // namespace tivra_bus
