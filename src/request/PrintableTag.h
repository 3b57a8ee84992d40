#pragma once
#include <cstdint>

namespace tivra_internal {

/// As "%lld" prints it.
[[nodiscard]] inline long long printable(int64_t tag) {
    return static_cast<long long>(tag);
}

} // namespace tivra_internal
