#include "share/LeaseBook.h"

#include "bus/JsonReading.h"

#include <algorithm>
#include <charconv>

namespace tivra_bus {

namespace {

constexpr std::string_view kMemberPrefix = "member.";
constexpr std::string_view kLeasePrefix = "lease.";
/// How many times a lease an entry is kept that nobody renews.
constexpr int kForgetAfter = 20;

} // namespace

LeaseBook::LeaseBook(std::string name, unsigned partitions, std::chrono::milliseconds lease)
    : m_name(std::move(name)), m_lease(lease), m_leases(partitions) {}

std::string LeaseBook::leaseKey(unsigned partition) {
    return std::string(kLeasePrefix) + std::to_string(partition);
}

std::string LeaseBook::leaseValue(std::uint64_t epoch) const {
    return fmt::format(R"({{"holder":"{}","epoch":{}}})", m_name, epoch);
}

std::string LeaseBook::freeValue(std::uint64_t epoch) {
    return fmt::format(R"({{"holder":"","epoch":{}}})", epoch);
}

void LeaseBook::readLease(const LeaseEntry& entry) {
    unsigned partition = 0;
    const char* const end = entry.key.data() + entry.key.size();
    const auto parsed = std::from_chars(entry.key.data() + kLeasePrefix.size(), end, partition);
    if (parsed.ec != std::errc{} || parsed.ptr != end || partition >= m_leases.size())
        return;
    Lease& lease = m_leases[partition];
    lease.revision = entry.revision;
    try {
        const JsonReading value(entry.value, entry.key);
        lease.holder = value.text("holder");
        lease.epoch = value.number("epoch", INT64_MAX);
    } catch (const BatchError&) {
        // Whoever has written this holds nothing; the stream knows the epoch.
        lease.holder.clear();
    }
}

void LeaseBook::read(const std::vector<LeaseEntry>& entries, Clock::time_point now) {
    std::fill(m_leases.begin(), m_leases.end(), Lease{});
    std::map<std::string, Member> members;
    for (const LeaseEntry& entry : entries) {
        if (entry.key.starts_with(kLeasePrefix)) {
            readLease(entry);
        } else if (entry.key.starts_with(kMemberPrefix)) {
            const std::string name = entry.key.substr(kMemberPrefix.size());
            const auto known = m_members.find(name);
            const bool isOld = known != m_members.end() && known->second.revision == entry.revision;
            members[name] = {entry.revision, isOld ? known->second.changed : now};
        }
    }
    m_members = std::move(members);
}

bool LeaseBook::isLive(const std::string& name, Clock::time_point now) const {
    const auto member = m_members.find(name);
    return name == m_name || (member != m_members.end() && now - member->second.changed < m_lease);
}

std::size_t LeaseBook::liveMembers(Clock::time_point now) const {
    std::size_t count = m_members.count(m_name) == 0 ? 1 : 0;
    for (const auto& [name, member] : m_members)
        count += isLive(name, now) ? 1U : 0U;
    return count;
}

std::uint64_t LeaseBook::memberRevision() const {
    const auto own = m_members.find(m_name);
    return own == m_members.end() ? 0 : own->second.revision;
}

std::vector<std::string> LeaseBook::deadMembers(Clock::time_point now) const {
    std::vector<std::string> keys;
    for (const auto& [name, member] : m_members)
        if (name != m_name && now - member.changed > kForgetAfter * m_lease)
            keys.push_back(std::string(kMemberPrefix) + name);
    return keys;
}

LeaseDecision LeaseBook::decide(const std::set<unsigned>& held, Clock::time_point now) const {
    LeaseDecision decision;
    std::vector<unsigned> kept;
    for (const unsigned partition : held) {
        if (m_leases[partition].holder == m_name)
            kept.push_back(partition);
        else
            decision.lost.push_back(partition);
    }
    const std::size_t members = liveMembers(now);
    const std::size_t share = (m_leases.size() + members - 1) / members;
    for (std::size_t i = share; i < kept.size(); ++i)
        decision.release.push_back(kept[i]);
    for (unsigned partition = 0; partition < m_leases.size(); ++partition) {
        if (kept.size() + decision.take.size() >= share)
            break;
        const Lease& lease = m_leases[partition];
        const bool isOurOld = lease.holder == m_name && held.count(partition) == 0;
        if (lease.holder.empty() || isOurOld || !isLive(lease.holder, now))
            decision.take.push_back(partition);
    }
    return decision;
}

} // namespace tivra_bus
