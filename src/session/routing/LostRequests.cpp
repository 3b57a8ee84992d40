#include "session/routing/LostRequests.h"

namespace tivra_internal {

void LostRequests::add(const HubClient* hub, const std::vector<int64_t>& tags) {
    if (tags.empty())
        return;
    {
        tp::MutexLock lock(m_mutex);
        std::deque<Lost>& lost = m_lost[hub];
        for (const int64_t tag : tags)
            lost.push_back({tag, m_lastCheck, hub != nullptr});
    }
    if (m_wake)
        m_wake();
}

void LostRequests::stopWaitingForQueue(const HubClient* hub) {
    tp::MutexLock lock(m_mutex);
    const auto found = m_lost.find(hub);
    if (found == m_lost.end())
        return;
    for (Lost& lost : found->second)
        lost.waitsForQueue = false;
}

void LostRequests::disown(const HubClient* hub) {
    tp::MutexLock lock(m_mutex);
    const auto found = m_lost.find(hub);
    if (found == m_lost.end())
        return;
    std::deque<Lost>& orphans = m_lost[nullptr];
    for (Lost& lost : found->second) {
        lost.waitsForQueue = false;
        orphans.push_back(lost);
    }
    m_lost.erase(found);
}

bool LostRequests::isEmpty() {
    tp::MutexLock lock(m_mutex);
    return m_lost.empty();
}

void LostRequests::clear() {
    tp::MutexLock lock(m_mutex);
    m_lost.clear();
}

void LostRequests::beginCheck() {
    tp::MutexLock lock(m_mutex);
    ++m_lastCheck;
}

void LostRequests::endCheck() {
    tp::MutexLock lock(m_mutex);
    m_reportedCheck = m_lastCheck;
}

std::optional<int64_t> LostRequests::next(const HubClient* hub, bool queueIsEmpty) {
    tp::MutexLock lock(m_mutex);
    const auto found = m_lost.find(hub);
    if (found == m_lost.end())
        return std::nullopt;
    const Lost lost = found->second.front();
    if (lost.check >= m_reportedCheck || (lost.waitsForQueue && !queueIsEmpty))
        return std::nullopt;
    found->second.pop_front();
    if (found->second.empty())
        m_lost.erase(found);
    return lost.tag;
}

} // namespace tivra_internal
