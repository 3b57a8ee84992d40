#pragma once

#include <cstdint>

namespace tivra_internal {

/// The source of the hub's own records, not of a market.
inline constexpr int32_t SYSTEM_SOURCE = 922;

} // namespace tivra_internal
