#pragma once

#include <cstddef>

namespace tivra_internal {

/// How often this thread has asked for memory with new since the program began. Counted by the operators of
/// this test program.
[[nodiscard]] std::size_t allocationsOfThisThread() noexcept;

} // namespace tivra_internal
