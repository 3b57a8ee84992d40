#include "nats/PendingSends.h"

#include <algorithm>
#include <utility>

namespace tivra_bus {

std::uint64_t PendingSends::add(SendTicket ticket) {
    const tp::MutexLock lock(m_mutex);
    m_pending.push_back({std::move(ticket), Clock::now() + m_patience});
    return m_first + m_pending.size() - 1;
}

bool PendingSends::take(std::uint64_t number, SendTicket& ticket) {
    if (number < m_first || number - m_first >= m_pending.size() || m_pending[number - m_first].isEnded)
        return false;
    Pending& pending = m_pending[number - m_first];
    ticket = std::move(pending.ticket);
    pending.isEnded = true;
    for (; !m_pending.empty() && m_pending.front().isEnded; ++m_first)
        m_pending.pop_front();
    return true;
}

void PendingSends::end(std::uint64_t number, const SendResult& result) {
    SendTicket ticket;
    {
        const tp::MutexLock lock(m_mutex);
        if (!take(number, ticket))
            return;
    }
    ticket.end(result);
}

void PendingSends::failed(std::uint64_t number, SendResult result) {
    const tp::MutexLock lock(m_mutex);
    if (SendTicket ticket; take(number, ticket))
        m_failed.emplace_back(std::move(ticket), std::move(result));
}

void PendingSends::failAll(const SendResult& result) {
    const tp::MutexLock lock(m_mutex);
    for (Pending& pending : m_pending)
        if (!pending.isEnded)
            m_failed.emplace_back(std::move(pending.ticket), result);
    m_first += m_pending.size();
    m_pending.clear();
}

void PendingSends::expire() {
    std::vector<std::pair<SendTicket, SendResult>> ended;
    {
        const tp::MutexLock lock(m_mutex);
        ended = std::exchange(m_failed, {});
        // All wait equally long, so those in front are over first.
        const Clock::time_point now = Clock::now();
        for (; !m_pending.empty() && (m_pending.front().isEnded || m_pending.front().deadline <= now);
             ++m_first) {
            if (!m_pending.front().isEnded)
                ended.emplace_back(
                    std::move(m_pending.front().ticket),
                    SendResult{SendResult::Outcome::Failed, 0, 0, "no acknowledgement in time"});
            m_pending.pop_front();
        }
    }
    for (const auto& [ticket, result] : ended)
        ticket.end(result);
}

std::size_t PendingSends::count() const {
    const tp::MutexLock lock(m_mutex);
    return m_failed.size() +
           static_cast<std::size_t>(std::count_if(m_pending.begin(), m_pending.end(),
                                                  [](const Pending& pending) { return !pending.isEnded; }));
}

} // namespace tivra_bus
