#include "share/LeaseShare.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <exception>
#include <optional>
#include <random>

namespace tivra_bus {

namespace {

constexpr std::chrono::milliseconds kRenewEvery{1000};
// Shorter than any pause of a bridge after a failure, so that each try after one shows whether the engine is
// well again.
constexpr std::chrono::milliseconds kRetryEvery{200};

std::string newNonce() {
    std::random_device chance;
    return fmt::format("{:08x}{:08x}", chance(), chance());
}

} // namespace

LeaseShare::LeaseShare(LeaseTable& table, const std::string& name, unsigned partitions,
                       std::chrono::milliseconds lease)
    : m_table(table), m_book({name, newNonce()}, partitions, lease) {}

LeaseDecision LeaseShare::decide(const std::set<unsigned>& held, bool isReady) {
    const Clock::time_point seen = readTable();
    LeaseDecision decision;
    if (!m_book.mayUseName(seen)) {
        // One that has died and was started again has to wait for its own entry to grow old.
        decision.lost.assign(held.begin(), held.end());
        return decision;
    }
    renew(isReady);
    // By what was seen: others may have shown that they are alive while this process was stopped.
    decision = m_book.decide(held, seen);
    for (const std::string& key : m_book.deadMembers(seen))
        m_table.remove(key);
    return decision;
}

PartitionShare::Clock::time_point LeaseShare::readTable() {
    const std::vector<LeaseEntry> entries = m_table.entries();
    // Not before that: it waits for the engine, and the process may be stopped meanwhile.
    const Clock::time_point seen = Clock::now();
    m_book.read(entries, seen);
    return seen;
}

void LeaseShare::renew(bool isReady) {
    const Clock::time_point now = Clock::now();
    if (now < m_nextRenewal || !m_book.mayUseName(now))
        return;
    m_nextRenewal = now + kRetryEvery;
    const std::optional<std::uint64_t> revision =
        m_table.write(m_book.memberKey(), m_book.memberValue(isReady), m_book.memberRevision());
    if (!revision) {
        // The table says which, and by what revision it can be written.
        readTable();
        throw BusError(
            fmt::format("the entry under the name {} was changed, by another bridge of that name or by "
                        "a write of this one whose answer was lost",
                        m_book.self().name));
    }
    m_book.wroteMember(*revision, isReady, now);
    m_confirmed = now;
    m_nextRenewal = now + kRenewEvery;
}

PartitionShare::Before LeaseShare::before(unsigned partition) {
    const Lease& lease = m_book.lease(partition);
    return {lease.holder.name, lease.epoch};
}

bool LeaseShare::claim(unsigned partition, std::uint64_t epoch) {
    const std::optional<std::uint64_t> revision =
        m_table.write(LeaseBook::leaseKey(partition), LeaseBook::leaseValue(m_book.self(), epoch),
                      m_book.lease(partition).revision);
    if (revision)
        m_book.wroteLease(partition, m_book.self(), epoch, *revision);
    return revision.has_value();
}

void LeaseShare::giveBack(unsigned partition) {
    const Lease lease = m_book.lease(partition);
    if (lease.holder != m_book.self())
        return;
    if (const auto revision = m_table.write(LeaseBook::leaseKey(partition),
                                            LeaseBook::leaseValue({}, lease.epoch), lease.revision))
        m_book.wroteLease(partition, {}, lease.epoch, *revision);
}

void LeaseShare::leave() {
    try {
        if (m_book.mayUseName(Clock::now()) && m_book.memberRevision() > 0)
            m_table.remove(m_book.memberKey());
    } catch (const std::exception&) {
        // It is taken for dead when the lease is over.
    }
}

std::string LeaseShare::end() const {
    return m_book.isNameTaken() ? fmt::format("another bridge has the name {}: give each a --name of its own",
                                              m_book.self().name)
                                : std::string();
}

} // namespace tivra_bus
