#include "bus/SymbolImage.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tivra_bus {

namespace {

/// Entries that are looked at one by one; those of more have a table.
constexpr std::size_t kNear = 64;
constexpr std::size_t kLeastText = 16;
/// Of a value that is no text.
constexpr std::size_t kNumberBytes = 8;

} // namespace

void SymbolImage::clear() {
    m_entries.clear();
    m_far.reset();
    m_next = 0;
    m_bytes = 0;
    m_isCut = false;
}

std::uint32_t SymbolImage::find(const std::string& place) {
    const std::size_t count = m_entries.size();
    // Messages of one kind have the same fields in the same order, so the next one is the right one as a
    // rule.
    if (m_next < count && m_entries[m_next].place == &place)
        return m_next++;
    if (count > kNear)
        return findFar(place);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = m_next + i < count ? m_next + i : m_next + i - count;
        if (m_entries[at].place == &place) {
            m_next = static_cast<std::uint32_t>(at + 1);
            return m_next - 1;
        }
    }
    return kNowhere;
}

std::uint32_t SymbolImage::findFar(const std::string& place) {
    if (m_far == nullptr) {
        m_far = std::make_unique<std::unordered_map<const std::string*, std::uint32_t>>();
        for (std::size_t i = 0; i < m_entries.size(); ++i)
            m_far->emplace(m_entries[i].place, static_cast<std::uint32_t>(i));
    }
    const auto found = m_far->find(&place);
    if (found == m_far->end())
        return kNowhere;
    m_next = found->second + 1;
    return found->second;
}

std::uint32_t SymbolImage::enter(const std::string& place, FieldNames& names, std::size_t most) {
    const std::size_t bytes = place.size() + kNumberBytes;
    if (m_bytes + bytes > most)
        return kNowhere;
    m_bytes += bytes;
    const auto at = static_cast<std::uint32_t>(m_entries.size());
    Entry& entry = m_entries.emplace_back();
    entry.place = &place;
    entry.name = &names.of(place);
    if (m_far != nullptr)
        m_far->emplace(&place, at);
    m_next = at + 1;
    return at;
}

bool SymbolImage::put(Entry& entry, const tivra::Value& value, std::size_t most) {
    if (value.type() == tivra::Value::Type::Text)
        return putText(entry, value.as<std::string_view>(), most);
    entry.value = value;
    return true;
}

bool SymbolImage::putText(Entry& entry, std::string_view text, std::size_t most) {
    if (text.size() > entry.textRoom) {
        const std::size_t room = std::max(kLeastText, text.size());
        if (m_bytes - entry.textRoom + room > most)
            return false;
        m_bytes += room - entry.textRoom;
        entry.text = std::make_unique<char[]>(room);
        entry.textRoom = static_cast<std::uint32_t>(room);
    }
    if (!text.empty())
        std::memcpy(entry.text.get(), text.data(), text.size());
    entry.value = tivra::Value::ofText({entry.text.get(), text.size()});
    return true;
}

} // namespace tivra_bus
