#pragma once

#include "bus/LeaseTable.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tivra_bus {

/// A lease as its entry says.
struct Lease {
    std::string holder; ///< empty when it was given back
    std::uint64_t epoch = 0;
    std::uint64_t revision = 0; ///< 0 for one that was never taken
};

/// What a bridge should do about its leases.
struct LeaseDecision {
    std::vector<unsigned> take;
    std::vector<unsigned> release;
    std::vector<unsigned> lost; ///< that somebody else holds now
};

/// What one bridge knows of the others, and decides by. Every bridge changes an entry of its own each second;
/// one whose entry hasn't changed for as long as a lease lasts, by the clock of whoever looks, is taken for
/// dead. So no two machines' clocks are compared.
/// @thread one at a time
class LeaseBook {
public:
    using Clock = std::chrono::steady_clock;

    /// @param name  of this bridge, which no other has
    LeaseBook(std::string name, unsigned partitions, std::chrono::milliseconds lease);

    /// Takes in what the table says.
    void read(const std::vector<LeaseEntry>& entries, Clock::time_point now);
    /// What is to be done by one who holds these. Each live bridge may hold an equal share, and only what is
    /// above it moves.
    [[nodiscard]] LeaseDecision decide(const std::set<unsigned>& held, Clock::time_point now) const;

    [[nodiscard]] const Lease& lease(unsigned partition) const { return m_leases.at(partition); }
    [[nodiscard]] std::size_t liveMembers(Clock::time_point now) const;
    [[nodiscard]] std::string memberKey() const { return "member." + m_name; }
    [[nodiscard]] std::uint64_t memberRevision() const;
    /// Entries of bridges that are long dead.
    [[nodiscard]] std::vector<std::string> deadMembers(Clock::time_point now) const;

    [[nodiscard]] static std::string leaseKey(unsigned partition);
    [[nodiscard]] std::string leaseValue(std::uint64_t epoch) const;
    [[nodiscard]] static std::string freeValue(std::uint64_t epoch);

private:
    struct Member {
        std::uint64_t revision = 0;
        Clock::time_point changed;
    };

    [[nodiscard]] bool isLive(const std::string& name, Clock::time_point now) const;
    void readLease(const LeaseEntry& entry);

    const std::string m_name;
    const std::chrono::milliseconds m_lease;
    std::vector<Lease> m_leases; ///< by partition
    std::map<std::string, Member> m_members;
};

} // namespace tivra_bus
