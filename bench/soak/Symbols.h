#pragma once

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

namespace tivra_soak {

inline constexpr std::size_t kHubs = 16;

/// The source that the i-th hub alone carries.
[[nodiscard]] inline int sourceOfHub(std::size_t hub) {
    return 200 + static_cast<int>(hub);
}

/// The i-th symbol is on the hub i % `kHubs`.
[[nodiscard]] inline std::string symbolOf(std::size_t index) {
    return "S" + std::to_string(index);
}

[[nodiscard]] inline std::size_t indexOf(std::string_view symbol) {
    std::size_t index = 0;
    std::from_chars(symbol.data() + 1, symbol.data() + symbol.size(), index);
    return index;
}

} // namespace tivra_soak
