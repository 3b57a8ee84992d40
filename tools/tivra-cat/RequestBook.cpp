#include "RequestBook.h"

namespace tivra_cat {

void RequestBook::enter(std::int64_t tag, std::string target) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_open.emplace(tag, std::move(target));
    ++m_totals.sent;
}

bool RequestBook::answer(std::int64_t tag, int code, const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_open.find(tag);
    if (found == m_open.end())
        return false;
    if (code == 0) {
        ++m_totals.answered;
    } else {
        ++m_totals.refused;
        m_refusals.push_back({found->second, code, text});
    }
    m_open.erase(found);
    return m_open.empty();
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
    for (const auto& [tag, target] : m_open) {
        if (targets.size() == limit)
            break;
        targets.push_back(target);
    }
    return targets;
}

} // namespace tivra_cat
