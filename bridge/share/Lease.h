#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tivra_bus {

/// One process of a bridge: its name may come again, the nonce doesn't.
struct LeaseHolder {
    std::string name;
    std::string nonce;
    friend bool operator==(const LeaseHolder&, const LeaseHolder&) = default;
};

/// A lease as its entry says.
struct Lease {
    LeaseHolder holder; ///< without a name when it was given back
    std::uint64_t epoch = 0;
    std::uint64_t revision = 0; ///< 0 for one that was never taken
};

/// A bridge as its entry says.
struct Member {
    std::string nonce;
    bool isReady = true; ///< it has its hubs
    std::uint64_t revision = 0;
    std::chrono::steady_clock::time_point changed; ///< when the entry was seen to change last
};

} // namespace tivra_bus
