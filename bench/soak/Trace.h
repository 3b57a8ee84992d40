#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "soak/Footprint.h"
#include "soak/Reader.h"

namespace tivra_soak {

/// What the process took and how far the readers came, over the time: a line of a CSV file for each look,
/// which is printed too.
class Trace {
public:
    explicit Trace(const std::filesystem::path& file);

    void add(double seconds, const std::vector<std::unique_ptr<Reader>>& readers, const Footprint& footprint);
    /// Prints how memory, threads, descriptors and the log have grown.
    /// @param residentInUse  bytes at the end without those that the allocator keeps
    /// @return whether all of that is bounded
    [[nodiscard]] bool judge(double residentInUse) const;

private:
    struct Look {
        double seconds;
        Footprint footprint;
    };

    std::ofstream m_file;
    std::vector<Look> m_looks;
    std::uint64_t m_lastUpdates = 0;
};

} // namespace tivra_soak
