#include "feed/FieldTable.h"

#include <tp/eprintf.h>

namespace tivra_internal {

const FieldEntry& FieldTable::intern(std::string_view name) {
    const tp::MutexLock lock(m_mutex);
    return internLocked(name);
}

const FieldEntry& FieldTable::internOfHub(std::string_view name) {
    const tp::MutexLock lock(m_mutex);
    if (m_entries.size() < kMostNames || m_byName.count(name) != 0)
        return internLocked(name);
    eprintf(EPF_WARN, "Hubs have named more than %zu fields; %.64s goes without its name", kMostNames,
            std::string(name).c_str());
    return internLocked("");
}

const FieldEntry& FieldTable::internLocked(std::string_view name) {
    if (const auto found = m_byName.find(name); found != m_byName.end())
        return *found->second;
    const FieldEntry& entry = m_entries.emplace_back(
        FieldEntry{std::string(name), static_cast<std::uint32_t>(m_entries.size()), this});
    m_byName.emplace(entry.name, &entry);
    return entry;
}

const FieldEntry* FieldTable::find(std::string_view name) {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_byName.find(name);
    return found != m_byName.end() ? found->second : nullptr;
}

} // namespace tivra_internal

namespace tivra {

const std::string& Field::name() const noexcept {
    static const std::string nothing;
    return m_entry != nullptr ? m_entry->name : nothing;
}

} // namespace tivra
