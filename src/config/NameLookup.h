#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_internal {

/// What a host's name stands for.
struct NameLookup {
    std::vector<std::uint32_t> addresses{}; ///< IPv4, in the resolver's order and in the host's byte order
    std::string fault{};                    ///< in words for an error; empty when there are some
};

/// Asks the system's resolver, which may take its time, or what is in its place. A text that can be no name
/// isn't asked for. Of a name with very many addresses the first ones count.
[[nodiscard]] NameLookup lookUpName(const std::string& name);

/// It may be a name; what has digits and points alone is an address, or a misprint of one.
[[nodiscard]] bool looksLikeName(const std::string& text);

/// It can be dialled as it is.
[[nodiscard]] bool isAddress(const std::string& text);
/// "10.1.2.3".
[[nodiscard]] std::string addressText(std::uint32_t address);

} // namespace tivra_internal
