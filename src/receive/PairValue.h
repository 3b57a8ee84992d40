#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "kvnparse/NumericText.h"
#include "kvnparse/TVPair.h"

namespace tivra_internal {

// The value of a pair in the type that a reader wants. Which member of the pair's union is read depends on
// the token's storage alone: a dictionary may call a field a string and still have it held as an integer.

/// A number is cut toward zero and limited to 64 bits (NaN gives 0); a text gives the digits that it starts
/// with, wrapping modulo 2^64, else 0.
[[nodiscard]] int64_t integerOf(const KVNAPI::TVPair& pair) noexcept;

/// A text gives the decimal number that it starts with, else 0.0; so does one of more than 17 decimals.
[[nodiscard]] double doubleOf(const KVNAPI::TVPair& pair) noexcept;

/// Room for the text of a number.
using NumberText = std::array<char, KVNAPI::kNumberTextMax>;

/// The bytes of a string value as they lie in the message, or a number's text in `room`.
[[nodiscard]] std::string_view textOf(const KVNAPI::TVPair& pair, NumberText& room) noexcept;

} // namespace tivra_internal
