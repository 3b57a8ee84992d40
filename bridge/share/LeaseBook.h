#pragma once

#include "bus/LeaseTable.h"
#include "share/LeaseDecision.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tivra_bus {

/// What one bridge knows of the others. Every bridge changes an entry of its own each second; one whose entry
/// hasn't changed for as long as a lease lasts, by the clock of whoever looks, is taken for dead. So no two
/// machines' clocks are compared.
/// @thread one at a time
class LeaseBook {
public:
    using Clock = std::chrono::steady_clock;

    LeaseBook(LeaseHolder self, unsigned partitions, std::chrono::milliseconds lease);

    /// Takes in what the table says. After a pause of the reader's or the engine's the others, who couldn't
    /// be seen in it, have as long as a lease to show themselves.
    void read(const std::vector<LeaseEntry>& entries, Clock::time_point now);
    /// What the bridge has written itself, which a copy of the table that lags doesn't undo.
    void wroteMember(std::uint64_t revision, bool isReady, Clock::time_point now);
    void wroteLease(unsigned partition, const LeaseHolder& holder, std::uint64_t epoch,
                    std::uint64_t revision);

    [[nodiscard]] LeaseDecision decide(const std::set<unsigned>& held, Clock::time_point now) const;

    /// Whether another process that is alive has the name of this one.
    [[nodiscard]] bool isNameTaken() const { return m_isNameTaken; }
    /// Whether this process may write the entry under its name: nobody else has it, or one that is dead.
    [[nodiscard]] bool mayUseName(Clock::time_point now) const;

    [[nodiscard]] const Lease& lease(unsigned partition) const { return m_leases.at(partition); }
    [[nodiscard]] std::size_t liveMembers(Clock::time_point now) const;
    [[nodiscard]] const LeaseHolder& self() const { return m_self; }
    [[nodiscard]] std::string memberKey() const { return "member." + m_self.name; }
    [[nodiscard]] std::uint64_t memberRevision() const;
    /// Entries of bridges that are long dead.
    [[nodiscard]] std::vector<std::string> deadMembers(Clock::time_point now) const;

    [[nodiscard]] std::string memberValue(bool isReady) const;
    [[nodiscard]] static std::string leaseKey(unsigned partition);
    /// @param holder  without a name to give it back
    [[nodiscard]] static std::string leaseValue(const LeaseHolder& holder, std::uint64_t epoch);

private:
    [[nodiscard]] static std::optional<unsigned> partitionOf(const std::string& key, std::size_t partitions);
    /// Whether the table is older than what is known of these entries.
    [[nodiscard]] bool lags(const std::vector<LeaseEntry>& entries) const;
    void readLease(const LeaseEntry& entry);
    /// Adds those that were known or hold a lease: one who writes while the table is read may be missing in
    /// it.
    void keepUnseen(const std::vector<LeaseEntry>& entries, Clock::time_point now,
                    std::map<std::string, Member>& members) const;
    void readMember(const LeaseEntry& entry, Clock::time_point now, std::map<std::string, Member>& members);

    const LeaseHolder m_self;
    const std::chrono::milliseconds m_lease;
    std::vector<Lease> m_leases; ///< by partition
    std::map<std::string, Member> m_members;
    std::uint64_t m_ownRevision = 0; ///< of the entry under its name, one that was deleted included
    bool m_isNameTaken = false;
    std::optional<Clock::time_point> m_lastRead;
    std::optional<Clock::time_point> m_lagsSince;
};

} // namespace tivra_bus
