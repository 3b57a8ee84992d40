#include "share/LeaseDecision.h"

#include <algorithm>

namespace tivra_bus {

namespace {

/// How many partitions the process may hold.
std::size_t shareOf(const LeaseHolder& self, std::size_t partitions,
                    const std::map<std::string, Member>& members, std::chrono::milliseconds lease,
                    std::chrono::steady_clock::time_point now) {
    std::size_t live = 0, ready = 0;
    for (const auto& [name, member] : members) {
        const bool counts = name == self.name || isLive(member, lease, now);
        live += counts ? 1U : 0U;
        ready += counts && member.isReady ? 1U : 0U;
    }
    const auto own = members.find(self.name);
    if (ready > 0 && own != members.end() && !own->second.isReady)
        return 0;
    const std::size_t sharers = std::max<std::size_t>(ready > 0 ? ready : live, 1);
    return (partitions + sharers - 1) / sharers;
}

} // namespace

bool isLive(const Member& member, std::chrono::milliseconds lease,
            std::chrono::steady_clock::time_point now) {
    return now - member.changed < lease;
}

LeaseDecision decideLeases(const LeaseHolder& self, const std::set<unsigned>& held,
                           const std::vector<Lease>& leases, const std::map<std::string, Member>& members,
                           std::chrono::milliseconds lease, std::chrono::steady_clock::time_point now) {
    LeaseDecision decision;
    std::vector<unsigned> kept;
    for (const unsigned partition : held)
        (leases[partition].holder == self ? kept : decision.lost).push_back(partition);
    const std::size_t share = shareOf(self, leases.size(), members, lease, now);
    for (std::size_t i = share; i < kept.size(); ++i)
        decision.release.push_back(kept[i]);
    const auto isFree = [&](const LeaseHolder& holder) {
        const auto member = members.find(holder.name);
        // A process that is dead has left its name to another.
        return holder.name.empty() || member == members.end() || member->second.nonce != holder.nonce ||
               !isLive(member->second, lease, now);
    };
    for (unsigned partition = 0; partition < leases.size(); ++partition) {
        if (held.count(partition) != 0)
            continue;
        const LeaseHolder& holder = leases[partition].holder;
        const bool hasRoom = kept.size() + decision.take.size() < share;
        if (holder == self)
            (hasRoom ? decision.take : decision.giveBack).push_back(partition);
        else if (hasRoom && isFree(holder))
            decision.take.push_back(partition);
    }
    return decision;
}

} // namespace tivra_bus
