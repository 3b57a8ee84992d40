#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace tivra_bus {

/// A time as appendTime() writes it; nothing for another text.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> timeOf(std::string_view text);

} // namespace tivra_bus
