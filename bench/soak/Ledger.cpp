#include "soak/Ledger.h"

#include <utility>

#include "soak/Symbols.h"

namespace tivra_soak {

using tivra::DataState;

namespace {

constexpr std::size_t kFaultsKept = 50;

} // namespace

void Ledger::leaveOut(std::size_t symbol, std::uint64_t messages) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_accounts.at(symbol).leftOut += messages;
    m_counts.leftOut += messages;
}

void Ledger::value(const Entry& entry) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts.at(entry.symbol);
    const std::uint64_t leftOut = std::exchange(account.leftOut, 0);
    ++(entry.isImage ? m_counts.images : m_counts.updates);
    // Before it is live a subscription promises nothing.
    if (account.last >= 0 && account.state != DataState::Pending) {
        const std::int64_t first = std::int64_t{account.last} + (entry.isImage ? 0 : 1);
        const std::int64_t next = first + static_cast<std::int64_t>(leftOut);
        if (entry.value > next || entry.value < (leftOut != 0 ? account.last : first))
            fault(entry.symbol, std::string(entry.isImage ? "image " : "update ") +
                                    std::to_string(entry.value) + " after " + std::to_string(account.last) +
                                    ", " + std::to_string(leftOut) + " reported as left out");
    }
    account.last = entry.value;
    account.shown = entry.value;
}

void Ledger::state(std::size_t symbol, const tivra::StateChange& change) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts.at(symbol);
    if (change.to == DataState::Stale) {
        account.owesGap = true;
        ++m_counts.losses;
    } else if (change.to == DataState::Live && account.owesGap) {
        fault(symbol, "live again with no gap reported");
    } else if (change.to == DataState::Refused) {
        fault(symbol, "refused: " + std::string(change.cause));
    }
    account.state = change.to;
}

void Ledger::gap(std::size_t symbol) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts.at(symbol);
    ++m_counts.gaps;
    account.owesGap = false;
    account.last = -1;
}

void Ledger::fault(std::size_t symbol, const std::string& text) {
    ++m_counts.faults;
    if (m_faults.size() < kFaultsKept)
        m_faults.push_back(m_reader + ": " + symbolOf(symbol) + ": " + text);
}

Ledger::Counts Ledger::counts() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

std::vector<std::string> Ledger::faults() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults;
}

std::size_t Ledger::behind(const std::vector<std::int32_t>& newest) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::size_t behind = 0;
    for (std::size_t i = 0; i < m_accounts.size(); ++i) {
        if (m_accounts[i].state != DataState::Live || m_accounts[i].shown != newest[i])
            ++behind;
    }
    return behind;
}

} // namespace tivra_soak
