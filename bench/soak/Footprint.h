#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace tivra_soak {

/// What the process has taken of its machine.
struct Footprint {
    double residentBytes = 0.0;
    double heapBytes = 0.0; ///< allocated and not freed
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::uint64_t logBytes = 0;
    double cpuSeconds = 0.0;

    /// @param logs  the folder whose files are the log
    [[nodiscard]] static Footprint now(const std::filesystem::path& logs);
    [[nodiscard]] static double resident();
    /// What is resident once the allocator has given back what is free.
    [[nodiscard]] static double residentInUse();
};

} // namespace tivra_soak
