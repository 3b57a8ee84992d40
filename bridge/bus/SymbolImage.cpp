#include "bus/SymbolImage.h"

#include <algorithm>
#include <utility>

namespace tivra_bus {

namespace {

/// Entries that are looked at one by one; those of more have a table.
constexpr std::size_t kNear = 64;
/// Texts get a little more room than they need.
constexpr std::size_t kTextStep = 4;
/// Of a value that is no text.
constexpr std::size_t kNumberBytes = 8;

} // namespace

void SymbolImage::Change::begin() {
    fields.clear();
    isWhole = true;
    m_near = 0;
    m_far.clear();
}

bool SymbolImage::Change::addFar(std::uint32_t field) {
    const std::size_t word = field / kNearBits;
    if (word >= m_far.size())
        m_far.resize(word + 1);
    return mark(m_far[word], field);
}

void SymbolImage::clear() {
    m_entries.clear();
    m_texts.clear();
    m_far.reset();
    m_next = 0;
    m_bytes = 0;
    m_unused = 0;
    m_isCut = false;
}

std::uint32_t SymbolImage::findOther(const std::string& place) {
    const std::size_t count = m_entries.size();
    if (count > kNear)
        return findFar(place);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = m_next + i < count ? m_next + i : m_next + i - count;
        if (m_entries[at].name->place == &place) {
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
            m_far->emplace(m_entries[i].name->place, static_cast<std::uint32_t>(i));
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
    m_entries.emplace_back().name = &names.of(place);
    if (m_far != nullptr)
        m_far->emplace(&place, at);
    m_next = at + 1;
    return at;
}

bool SymbolImage::put(Entry& entry, const tivra::Value& value, std::size_t most) {
    switch (value.type()) {
    case tivra::Value::Type::Text:
        return putText(entry, value.as<std::string_view>(), most);
    case tivra::Value::Type::Integer:
        entry.content.integer = value.as<std::int64_t>();
        break;
    case tivra::Value::Type::Double:
        entry.content.number = value.as<double>();
        break;
    case tivra::Value::Type::Time:
        entry.content.integer = value.as<tivra::TimePoint>().time_since_epoch().count();
        break;
    }
    m_unused += std::exchange(entry.textRoom, 0);
    entry.type = value.type();
    return true;
}

bool SymbolImage::putText(Entry& entry, std::string_view text, std::size_t most) {
    if (text.size() > entry.textRoom) {
        const std::size_t room = (text.size() + kTextStep - 1) / kTextStep * kTextStep;
        if (m_bytes + room > most)
            return false;
        m_unused += std::exchange(entry.textRoom, 0);
        if (m_unused > m_texts.size() / 2)
            packTexts();
        m_bytes += room;
        entry.content.text.begin = static_cast<std::uint32_t>(m_texts.size());
        entry.textRoom = static_cast<std::uint32_t>(room);
        m_texts.resize(m_texts.size() + room);
    } else if (entry.textRoom == 0) {
        entry.content.text.begin = 0;
    }
    std::copy(text.begin(), text.end(), m_texts.data() + entry.content.text.begin);
    entry.content.text.length = static_cast<std::uint32_t>(text.size());
    entry.type = tivra::Value::Type::Text;
    return true;
}

void SymbolImage::packTexts() {
    std::string packed;
    for (Entry& entry : m_entries) {
        const auto begin = static_cast<std::uint32_t>(packed.size());
        packed.append(m_texts, entry.textRoom > 0 ? entry.content.text.begin : 0, entry.textRoom);
        if (entry.textRoom > 0)
            entry.content.text.begin = begin;
    }
    m_bytes -= m_texts.size() - packed.size();
    m_unused = 0;
    m_texts = std::move(packed);
}

} // namespace tivra_bus
