#pragma once

#include <cstddef>

namespace tivra_internal {

/// Memory for records. A block that is given back serves the next record of about its size, on whichever
/// thread that is made: as a rule one thread makes records and another drops them, so each thread hands what
/// it has too much of to the others, by the chain. It keeps a few thousand blocks at most, takes no lock, and
/// lives as long as the process. @thread any
class RecordPool {
public:
    static constexpr std::size_t kStep = 64;
    static constexpr std::size_t kLargest = 2048; ///< larger blocks aren't kept

    RecordPool() = delete;

    /// Throws std::bad_alloc.
    [[nodiscard]] static void* take(std::size_t size);
    /// @param size  as it was taken
    static void giveBack(void* block, std::size_t size) noexcept;
};

} // namespace tivra_internal
