#pragma once

#include <cstdint>

namespace tivra_internal {

/// The source of the hub's own records, not of a market.
inline constexpr int32_t kSystemSource = 922;

} // namespace tivra_internal
