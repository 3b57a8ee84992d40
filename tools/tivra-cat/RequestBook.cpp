#include "RequestBook.h"

namespace tivra_cat {

void RequestBook::enter(std::int64_t tag, Asked asked) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.emplace(tag, Entry{std::move(asked), State::Open});
    ++m_totals.sent;
}

bool RequestBook::answer(std::int64_t tag, int code, const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_entries.find(tag);
    if (found == m_entries.end())
        return false;
    Entry& entry = found->second;
    const State before = entry.state;
    entry.state = code == 0 ? State::Granted : State::Refused;
    if (entry.state == before)
        return false;
    // What was counted before counts no longer.
    m_totals.answered -= before == State::Granted ? 1U : 0U;
    m_totals.refused -= before == State::Refused ? 1U : 0U;
    if (code == 0) {
        ++m_totals.answered;
        return false;
    }
    ++m_totals.refused;
    m_refusals.push_back({entry.asked.target, code, text, before == State::Granted});
    return before == State::Granted;
}

std::optional<Asked> RequestBook::asked(std::int64_t tag) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_entries.find(tag);
    return found == m_entries.end() ? std::nullopt : std::optional<Asked>(found->second.asked);
}

RequestBook::Totals RequestBook::totals() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_totals;
}

std::vector<Refusal> RequestBook::takeRefusals() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Refusal> refusals;
    refusals.swap(m_refusals);
    return refusals;
}

std::vector<std::string> RequestBook::openTargets(std::size_t limit) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> targets;
    for (const auto& [tag, entry] : m_entries) {
        if (targets.size() == limit)
            break;
        if (entry.state == State::Open)
            targets.push_back(entry.asked.target);
    }
    return targets;
}

} // namespace tivra_cat
