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
    /// A field with its value. They are small: those of another symbol are needed for each update, and come
    /// from memory as a rule.
    struct Entry {
        const FieldName* name = nullptr;
        union Content {
            std::int64_t integer; ///< of a time the microseconds since 1970
            double number;
            struct {
                std::uint32_t begin, length;
            } text; ///< see textOf()
        } content{};
        tivra::Value::Type type = tivra::Value::Type::Integer;
        std::uint32_t textRoom = 0;
    };
    /// What a change was made of.
    struct Change {
        std::vector<std::uint32_t> fields; ///< indexes of entries, in the order of the message
        /// Each of the message's fields is there, and none twice, so that the entries say what it said.
        bool isWhole = true;

    private:
        friend class SymbolImage;
        void begin();
        /// @return whether it was in it already
        bool add(std::uint32_t field) {
            fields.push_back(field);
            return field < kNearBits ? mark(m_near, field) : addFar(field);
        }
        bool addFar(std::uint32_t field);
        static bool mark(std::uint64_t& bits, std::uint32_t field) {
            const std::uint64_t bit = std::uint64_t{1} << field % kNearBits;
            return (std::exchange(bits, bits | bit) & bit) != 0;
        }

        static constexpr std::uint32_t kNearBits = 64;
        std::uint64_t m_near = 0;         ///< a bit for each of the first entries
        std::vector<std::uint64_t> m_far; ///< the same of those after them
    };

    /// Puts the fields of a tivra::Update in place of the values before.
    /// @param replaces  all of them, whatever their fields
    /// @param most      bytes of names and texts
    template<class Values>
    void apply(const Values& values, bool replaces, std::size_t most, FieldNames& names, Change& change);

    [[nodiscard]] const std::vector<Entry>& entries() const { return m_entries; }
    [[nodiscard]] std::string_view textOf(const Entry& entry) const {
        return std::string_view(m_texts).substr(entry.content.text.begin, entry.content.text.length);
    }
    /// Whether something isn't kept.
    [[nodiscard]] bool isCut() const { return m_isCut; }

private:
    static constexpr std::uint32_t kNowhere = ~std::uint32_t{0};

    void clear();
    /// kNowhere when there is none.
    [[nodiscard]] std::uint32_t find(const std::string& place) {
        // Messages of one kind have the same fields in the same order, so the next one is the right one as a
        // rule.
        if (m_next < m_entries.size() && m_entries[m_next].name->place == &place)
            return m_next++;
        return findOther(place);
    }
    [[nodiscard]] std::uint32_t findOther(const std::string& place);
    /// One of many.
    [[nodiscard]] std::uint32_t findFar(const std::string& place);
    [[nodiscard]] std::uint32_t enter(const std::string& place, FieldNames& names, std::size_t most);
    /// @return whether there was room for it
    [[nodiscard]] bool put(Entry& entry, const tivra::Value& value, std::size_t most);
    [[nodiscard]] bool putText(Entry& entry, std::string_view text, std::size_t most);
    /// Leaves out what no entry refers to.
    void packTexts();

    std::vector<Entry> m_entries;
    std::string m_texts;
    std::size_t m_bytes = 0;  ///< of names, and the room of texts
    std::size_t m_unused = 0; ///< of texts that have got more room elsewhere
    std::uint32_t m_next = 0; ///< the entry that is looked at first
    bool m_isCut = false;
    /// The entries by place, once there are many.
    std::unique_ptr<std::unordered_map<const std::string*, std::uint32_t>> m_far;
};

template<class Values>
void SymbolImage::apply(const Values& values, bool replaces, std::size_t most, FieldNames& names,
                        Change& change) {
    if (replaces)
        clear();
    change.begin();
    for (const auto& [field, value] : values) {
        const std::string& place = field.name();
        std::uint32_t at = find(place);
        if (at == kNowhere)
            at = enter(place, names, most);
        if (at == kNowhere || !put(m_entries[at], value, most)) {
            m_isCut = true;
            change.isWhole = false;
        } else if (change.add(at)) {
            change.isWhole = false;
        }
    }
}

} // namespace tivra_bus
