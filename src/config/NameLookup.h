#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_internal {

/// What a host's name stands for, asked of the system at this moment, which may take as long as its resolver
/// does.
struct NameLookup {
    explicit NameLookup(const std::string& name);

    std::vector<std::uint32_t> addresses{}; ///< IPv4, in the resolver's order and in the host's byte order
    std::string fault{};                    ///< in words for an error; empty when there are some
};

/// "10.1.2.3".
[[nodiscard]] std::string addressText(std::uint32_t address);

} // namespace tivra_internal
