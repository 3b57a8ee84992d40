#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>

namespace tivra_bus {

/// "1 symbol", "2 symbols". @param noun  whose plural ends in "s"
[[nodiscard]] inline std::string counted(std::size_t count, const char* noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace tivra_bus
