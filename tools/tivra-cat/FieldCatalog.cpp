#include "FieldCatalog.h"

#include <algorithm>

namespace tivra_cat {

const FieldCatalog::Entry& FieldCatalog::entryOf(int token, const tivra::MessageReader& reader) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::unique_ptr<const Entry>& entry = m_entries[token];
    if (entry == nullptr) {
        std::string name = reader.getTokenName();
        const bool isSelected = m_selection.contains(token, name);
        const bool isSequence = m_sequence.isAbout(token, name);
        entry = std::make_unique<const Entry>(Entry{std::move(name), isSelected, isSequence});
    }
    return *entry;
}

std::vector<std::string> FieldCatalog::unseen() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> labels;
    for (const FieldChoice& choice : m_selection.choices()) {
        const bool seen = std::any_of(m_entries.begin(), m_entries.end(), [&](const auto& entry) {
            return choice.rankOf(entry.first, entry.second->name) >= 0;
        });
        if (!seen && !choice.isReceived())
            labels.push_back(choice.label);
    }
    return labels;
}

} // namespace tivra_cat
