#pragma once

#include "bus/SendResult.h"

#include <string_view>

namespace tivra_bus {

/// What the server's acknowledgement of a message says; it may be any bytes.
[[nodiscard]] SendResult acknowledgementOf(std::string_view text);
/// The epoch of last values; 0 for anything else.
[[nodiscard]] std::uint64_t epochOfLast(std::string_view message);
/// Whether the server's code says that something else is there than was expected.
[[nodiscard]] bool isConflict(int code);

} // namespace tivra_bus
