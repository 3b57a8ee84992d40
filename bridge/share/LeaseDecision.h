#pragma once

#include "share/Lease.h"

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tivra_bus {

/// What a bridge should do about its leases.
struct LeaseDecision {
    std::vector<unsigned> take;
    std::vector<unsigned> release;
    std::vector<unsigned> lost;     ///< that somebody else holds now
    std::vector<unsigned> giveBack; ///< that are its own by their entries, and that it doesn't write
};

/// What one process has to do that writes the partitions of `held`, by what it knows of the leases and of the
/// members, itself included, which are taken for dead when they haven't changed for as long as `lease`.
///
/// Each live member may hold an equal share, and only what is above it moves. One that isn't ready, since its
/// hubs are lost, has no share while any other is ready.
[[nodiscard]] LeaseDecision decideLeases(const LeaseHolder& self, const std::set<unsigned>& held,
                                         const std::vector<Lease>& leases,
                                         const std::map<std::string, Member>& members,
                                         std::chrono::milliseconds lease,
                                         std::chrono::steady_clock::time_point now);

/// Whether the member counts as alive.
[[nodiscard]] bool isLive(const Member& member, std::chrono::milliseconds lease,
                          std::chrono::steady_clock::time_point now);

} // namespace tivra_bus
