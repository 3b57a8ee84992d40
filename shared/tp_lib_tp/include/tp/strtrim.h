#pragma once

namespace tp {

/// Removes white space (isspace) from both ends of a zero-terminated text, in place.
/// @return the text given
char* strtrim(char* text) noexcept;

} // namespace tp
