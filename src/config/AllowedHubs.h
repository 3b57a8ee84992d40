#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_internal {

/// The addresses that a hub may have: those that the application has named, and their networks or what it
/// lists instead. Made at a start; @thread any afterwards.
class AllowedHubs {
public:
    /// @param configured  addresses. Each counts, and without a list so does each network of theirs: the 256
    ///                    addresses that begin like it, or all loopback addresses
    /// @param listed      addresses, networks such as 10.1.0.0/16, and names, after commas. Names are looked
    ///                    up here and now; what can't be meant is logged and allows nothing
    AllowedHubs(const std::vector<std::string>& configured, const std::string& listed);

    [[nodiscard]] bool contain(const std::string& address) const;

    /// What can't be meant in a list, in words for an error. Empty when all of it can.
    [[nodiscard]] static std::string faultOf(std::string_view listed);

private:
    struct Network {
        std::uint32_t address;
        std::uint32_t mask;
    };

    void addConfigured(const std::string& address, bool withNetwork);
    void addListed(const std::string& item);
    void addName(const std::string& name);

    std::vector<Network> m_networks;
};

} // namespace tivra_internal
