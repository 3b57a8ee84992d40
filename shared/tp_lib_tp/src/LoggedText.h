#pragma once

#include <cstddef>

#include "BoundedText.h"

namespace tp {

/// Makes the text from a place on fit for a log: passwords masked, and each byte that isn't a printable ASCII
/// character written as \xNN, so that whoever sends it can neither forge a line nor reach the terminal.
/// @return false when there is no room for that; the text is unusable then
[[nodiscard]] bool makeLoggable(BoundedText& text, std::size_t from) noexcept;

} // namespace tp
