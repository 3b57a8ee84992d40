#pragma once

#include "bus/FieldNames.h"

#include <feed/Value.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tivra_bus {

/// The last value of each field of a symbol, in the order in which they came first. What would make a message
/// of more bytes than the engine takes isn't kept. @thread one at a time
class SymbolImage {
public:
    struct Entry {
        const std::string* place = nullptr; ///< of the name in the feed
        const FieldName* name = nullptr;
        tivra::Value value; ///< a text is the entry's own
        std::unique_ptr<char[]> text;
        std::uint32_t textRoom = 0;
        std::uint32_t change = 0; ///< the number of the last change that it was in
    };
    /// What a change was made of.
    struct Change {
        std::vector<std::uint32_t> fields; ///< indexes of entries, in the order of the message
        /// Each of the message's fields is there, and none twice, so that the entries say what it said.
        bool isWhole = true;
    };

    /// Puts the fields of a tivra::Update in place of the values before.
    /// @param replaces  all of them, whatever their fields
    /// @param most      bytes of names and texts
    template<class Values>
    void apply(const Values& values, bool replaces, std::size_t most, FieldNames& names, Change& change);

    [[nodiscard]] const std::vector<Entry>& entries() const { return m_entries; }
    /// Whether something isn't kept.
    [[nodiscard]] bool isCut() const { return m_isCut; }

private:
    static constexpr std::uint32_t kNowhere = ~std::uint32_t{0};

    void clear();
    /// kNowhere when there is none.
    [[nodiscard]] std::uint32_t find(const std::string& place);
    /// One of many.
    [[nodiscard]] std::uint32_t findFar(const std::string& place);
    [[nodiscard]] std::uint32_t enter(const std::string& place, FieldNames& names, std::size_t most);
    /// @return whether there was room for it
    [[nodiscard]] bool put(Entry& entry, const tivra::Value& value, std::size_t most);
    [[nodiscard]] bool putText(Entry& entry, std::string_view text, std::size_t most);

    std::vector<Entry> m_entries;
    std::uint32_t m_next = 0; ///< the entry that is looked at first
    std::uint32_t m_change = 0;
    std::size_t m_bytes = 0; ///< of names and texts
    bool m_isCut = false;
    /// The entries by place, once there are many.
    std::unique_ptr<std::unordered_map<const std::string*, std::uint32_t>> m_far;
};

template<class Values>
void SymbolImage::apply(const Values& values, bool replaces, std::size_t most, FieldNames& names,
                        Change& change) {
    if (replaces)
        clear();
    change.fields.clear();
    change.isWhole = true;
    ++m_change;
    for (const auto& [field, value] : values) {
        const std::string& place = field.name();
        std::uint32_t at = find(place);
        if (at == kNowhere)
            at = enter(place, names, most);
        if (at == kNowhere || !put(m_entries[at], value, most)) {
            m_isCut = true;
            change.isWhole = false;
            continue;
        }
        if (std::exchange(m_entries[at].change, m_change) == m_change)
            change.isWhole = false;
        change.fields.push_back(at);
    }
}

} // namespace tivra_bus
