#include "share/LeaseBook.h"

#include "bus/BatchHeader.h"
#include "bus/JsonReading.h"

#include <algorithm>
#include <charconv>

namespace tivra_bus {

namespace {

constexpr std::string_view kMemberPrefix = "member.";
constexpr std::string_view kLeasePrefix = "lease.";
/// How many times a lease an entry is kept that nobody renews.
constexpr int kForgetAfter = 20;
/// Between two looks at the table, of a lease's time, when others may have been unseen.
constexpr int kUnseenPart = 3;

} // namespace

LeaseBook::LeaseBook(LeaseHolder self, unsigned partitions, std::chrono::milliseconds lease)
    : m_self(std::move(self)), m_lease(lease), m_leases(partitions) {}

std::string LeaseBook::leaseKey(unsigned partition) {
    return std::string(kLeasePrefix) + std::to_string(partition);
}

std::string LeaseBook::leaseValue(const LeaseHolder& holder, std::uint64_t epoch) {
    return fmt::format(R"({{"holder":"{}","nonce":"{}","epoch":{}}})", holder.name, holder.nonce, epoch);
}

std::string LeaseBook::memberValue(bool isReady) const {
    return fmt::format(R"({{"nonce":"{}","ready":{}}})", m_self.nonce, isReady);
}

std::optional<unsigned> LeaseBook::partitionOf(const std::string& key, std::size_t partitions) {
    if (!key.starts_with(kLeasePrefix))
        return std::nullopt;
    unsigned partition = 0;
    const char* const end = key.data() + key.size();
    const auto parsed = std::from_chars(key.data() + kLeasePrefix.size(), end, partition);
    if (parsed.ec != std::errc{} || parsed.ptr != end || partition >= partitions)
        return std::nullopt;
    return partition;
}

void LeaseBook::readLease(const LeaseEntry& entry) {
    const std::optional<unsigned> partition = partitionOf(entry.key, m_leases.size());
    if (!partition)
        return;
    Lease& lease = m_leases[*partition];
    lease = {{}, 0, entry.revision};
    try {
        const JsonReading value(entry.value, entry.key);
        lease.holder = {value.text("holder"), value.textOr("nonce", "")};
        lease.epoch = value.number("epoch", kMostEpoch);
    } catch (const BatchError&) {
        // Whoever has written this holds nothing; the stream knows the epoch.
        lease.holder = {};
    }
}

void LeaseBook::readMember(const LeaseEntry& entry, Clock::time_point now,
                           std::map<std::string, Member>& members) {
    const std::string name = entry.key.substr(kMemberPrefix.size());
    const bool isOwn = name == m_self.name;
    if (isOwn)
        m_ownRevision = entry.revision;
    if (entry.value.empty())
        return;
    Member member;
    member.revision = entry.revision;
    member.changed = now;
    try {
        const JsonReading value(entry.value, entry.key);
        member.nonce = value.textOr("nonce", "");
        const auto* const ready = value.find("ready");
        member.isReady = ready == nullptr || !ready->is_boolean() || ready->get<bool>();
    } catch (const BatchError&) {
        // It counts as a member for as long as somebody changes it.
    }
    const auto known = m_members.find(name);
    if (known != m_members.end() && known->second.revision == entry.revision)
        member.changed = known->second.changed;
    else if (isOwn && known != m_members.end() && known->second.nonce == member.nonce &&
             member.nonce != m_self.nonce)
        m_isNameTaken = true;
    members[name] = std::move(member);
}

bool LeaseBook::lags(const std::vector<LeaseEntry>& entries) const {
    std::size_t leases = 0;
    for (const LeaseEntry& entry : entries) {
        if (const auto partition = partitionOf(entry.key, m_leases.size())) {
            ++leases;
            if (entry.revision < m_leases[*partition].revision)
                return true;
        } else if (entry.key == memberKey() && entry.revision < m_ownRevision) {
            return true;
        }
    }
    return leases <
           static_cast<std::size_t>(std::count_if(
               m_leases.begin(), m_leases.end(), [](const Lease& lease) { return lease.revision > 0; }));
}

void LeaseBook::read(const std::vector<LeaseEntry>& entries, Clock::time_point now) {
    if (!lags(entries))
        m_lagsSince.reset();
    else if (!m_lagsSince)
        m_lagsSince = now;
    // A copy that doesn't catch up is no copy that lags: the table was made anew.
    if (m_lagsSince && now - *m_lagsSince < m_lease)
        return;
    if (m_lastRead && now - *m_lastRead > m_lease / kUnseenPart)
        for (auto& [name, member] : m_members)
            if (isLive(member, m_lease, *m_lastRead))
                member.changed = now;
    m_lastRead = now;
    std::fill(m_leases.begin(), m_leases.end(), Lease{});
    m_ownRevision = 0;
    std::map<std::string, Member> members;
    for (const LeaseEntry& entry : entries) {
        if (entry.key.starts_with(kMemberPrefix))
            readMember(entry, now, members);
        else
            readLease(entry);
    }
    keepUnseen(entries, now, members);
    m_members = std::move(members);
}

void LeaseBook::keepUnseen(const std::vector<LeaseEntry>& entries, Clock::time_point now,
                           std::map<std::string, Member>& members) const {
    std::set<std::string> removed;
    for (const LeaseEntry& entry : entries)
        if (entry.value.empty() && entry.key.starts_with(kMemberPrefix))
            removed.insert(entry.key.substr(kMemberPrefix.size()));
    for (const auto& [name, member] : m_members)
        if (removed.count(name) == 0)
            members.emplace(name, member);
    for (const Lease& lease : m_leases) {
        const auto known = m_members.find(lease.holder.name);
        if (!lease.holder.name.empty())
            members.emplace(lease.holder.name, known != m_members.end()
                                                   ? known->second
                                                   : Member{lease.holder.nonce, true, 0, now});
    }
}

void LeaseBook::wroteMember(std::uint64_t revision, bool isReady, Clock::time_point now) {
    m_ownRevision = revision;
    m_members[m_self.name] = {m_self.nonce, isReady, revision, now};
}

void LeaseBook::wroteLease(unsigned partition, const LeaseHolder& holder, std::uint64_t epoch,
                           std::uint64_t revision) {
    m_leases.at(partition) = {holder, epoch, revision};
}

bool LeaseBook::mayUseName(Clock::time_point now) const {
    const auto own = m_members.find(m_self.name);
    return own == m_members.end() || own->second.nonce == m_self.nonce || !isLive(own->second, m_lease, now);
}

std::size_t LeaseBook::liveMembers(Clock::time_point now) const {
    std::size_t count = m_members.count(m_self.name) == 0 ? 1 : 0;
    for (const auto& [name, member] : m_members)
        count += name == m_self.name || isLive(member, m_lease, now) ? 1U : 0U;
    return count;
}

std::uint64_t LeaseBook::memberRevision() const {
    return m_ownRevision;
}

std::vector<std::string> LeaseBook::deadMembers(Clock::time_point now) const {
    std::vector<std::string> keys;
    for (const auto& [name, member] : m_members)
        if (name != m_self.name && !isLive(member, kForgetAfter * m_lease, now))
            keys.push_back(std::string(kMemberPrefix) + name);
    return keys;
}

LeaseDecision LeaseBook::decide(const std::set<unsigned>& held, Clock::time_point now) const {
    return decideLeases(m_self, held, m_leases, m_members, m_lease, now);
}

} // namespace tivra_bus
