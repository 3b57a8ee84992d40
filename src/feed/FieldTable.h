#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

#include <feed/Field.h>
#include <tp/Mutex.h>

namespace tivra_internal {

/// A field that somebody has named: an application by Feed::field, or a hub by sending it.
struct FieldEntry {
    std::string name;
    std::uint32_t index; ///< in its table, from 0
    const FieldTable* table;
};

/// The names of a feed's fields. Entries are never removed, so whatever refers to one keeps the table. It
/// holds no more names than the dictionaries of the feed's hubs have had, and no more than a bound. @thread
/// any
class FieldTable {
public:
    FieldTable() = default;
    FieldTable(const FieldTable&) = delete;
    FieldTable& operator=(const FieldTable&) = delete;

    /// The entry of that name, made if there is none. For what an application names.
    [[nodiscard]] const FieldEntry& intern(std::string_view name) TP_EXCLUDES(m_mutex);
    /// The same for what a hub names, whose dictionaries may follow one another without end: above kMostNames
    /// all that are new have one entry, without a name.
    [[nodiscard]] const FieldEntry& internOfHub(std::string_view name) TP_EXCLUDES(m_mutex);

    /// Null when nobody has named it yet.
    [[nodiscard]] const FieldEntry* find(std::string_view name);

    [[nodiscard]] static const FieldEntry* entryOf(const tivra::Field& field) noexcept {
        return field.m_entry;
    }
    [[nodiscard]] static tivra::Field fieldOf(const FieldEntry& entry) noexcept {
        return tivra::Field(&entry);
    }

    static constexpr std::size_t kMostNames = 1'000'000;

private:
    [[nodiscard]] const FieldEntry& internLocked(std::string_view name) TP_REQUIRES(m_mutex);

    tp::Mutex m_mutex;
    std::deque<FieldEntry> m_entries TP_GUARDED_BY(m_mutex);
    /// The names stand in the entries, which don't move.
    std::unordered_map<std::string_view, const FieldEntry*> m_byName TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
