#include "BusFields.h"

#include <algorithm>
#include <utility>

namespace tivra_cat {

const BusFields::Entry* BusFields::entryOf(std::string_view name) {
    if (const auto found = m_entries.find(name); found != m_entries.end())
        return &found->second;
    if (m_entries.size() >= kMostNames || name.size() > kMostBytes - m_bytes) {
        ++m_leftOut;
        return nullptr;
    }
    m_bytes += name.size();
    Entry entry{std::string(name), -1 - static_cast<int>(m_entries.size()), false};
    entry.isSelected = m_selection.contains(entry.token, entry.name);
    std::string key = entry.name;
    return &m_entries.emplace(std::move(key), std::move(entry)).first->second;
}

std::vector<std::string> BusFields::unseen() const {
    std::vector<std::string> labels;
    for (const FieldChoice& choice : m_selection.choices()) {
        const bool isSeen = std::any_of(m_entries.begin(), m_entries.end(), [&](const auto& entry) {
            return choice.rankOf(entry.second.token, entry.first) >= 0;
        });
        if (!isSeen && !choice.isReceived())
            labels.push_back(choice.label);
    }
    return labels;
}

} // namespace tivra_cat
