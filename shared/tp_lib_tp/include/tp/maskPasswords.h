#pragma once

#include <cstddef>

namespace tp {

/// Replaces the value of each password in a request or in what a hub has made of one by an asterisk. A value
/// ends at the next separator or control byte. The text becomes no longer.
/// @return the new length; nothing behind it is written
[[nodiscard]] std::size_t maskPasswords(char* text, std::size_t length) noexcept;

} // namespace tp
