#pragma once

#include <cstddef>
#include <string>

namespace tivra_internal {

/// One configured host as the start lists name it.
struct HostPair {
    std::string addr;
    std::size_t port = 0;

    bool operator==(const HostPair& other) const { return addr == other.addr && port == other.port; }
};

} // namespace tivra_internal
