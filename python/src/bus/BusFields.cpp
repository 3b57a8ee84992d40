#include "bus/BusFields.h"

#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include <feed/RecordData.h>

namespace tivra_python {
namespace {

using tivra_internal::FieldTable;
using tivra_internal::RecordData;

/// What RecordData::make() asks of the content of a record.
class Content {
public:
    Content(std::shared_ptr<FieldTable> table, int source, std::string_view symbol)
        : m_table(std::move(table)), m_source(source), m_symbol(symbol) {}

    void add(const RecordData::Slot& slot) { m_slots.push_back(slot); }
    void reserve(std::size_t size) { m_slots.reserve(size); }
    [[nodiscard]] tivra::Value& valueAt(std::size_t index) { return m_slots[index].value; }

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return m_table; }
    [[nodiscard]] int source() const noexcept { return m_source; }
    [[nodiscard]] std::string_view symbol() const noexcept { return m_symbol; }
    [[nodiscard]] std::size_t size() const noexcept { return m_slots.size(); }
    [[nodiscard]] const RecordData::Slot& slotAt(std::size_t index) const { return m_slots[index]; }
    [[nodiscard]] std::size_t textLengthAt(std::size_t index) const {
        const tivra::Value& value = m_slots[index].value;
        return value.type() == tivra::Value::Type::Text ? value.as<std::string_view>().size() : 0;
    }

private:
    const std::shared_ptr<FieldTable> m_table;
    const int m_source;
    const std::string_view m_symbol;
    std::vector<RecordData::Slot> m_slots;
};

} // namespace

tivra::Field BusFields::field(std::string_view name) const {
    return FieldTable::fieldOf(m_table->intern(name));
}

tivra::Record BusFields::recordOf(const tivra::BusUpdate& update) const {
    Content content(m_table, update.source(), update.symbol());
    content.reserve(update.size());
    for (const auto& [name, value] : update)
        content.add({&m_table->internOfHub(name), value});
    return RecordData::make(content);
}

tivra::Record BusFields::emptyRecord(const tivra::Instrument& instrument) const {
    return RecordData::make(Content(m_table, instrument.source, instrument.symbol));
}

tivra::Record BusFields::merged(const tivra::Record& earlier, const tivra::Record& later) const {
    Content content(m_table, later.source(), later.symbol());
    content.reserve(earlier.size() + later.size());
    std::unordered_map<const tivra_internal::FieldEntry*, std::size_t> places;
    const auto add = [&](const tivra::Field& field, const tivra::Value& value) {
        const tivra_internal::FieldEntry* const entry = FieldTable::entryOf(field);
        const auto [place, isNew] = places.emplace(entry, content.size());
        if (isNew)
            content.add({entry, value});
        else
            content.valueAt(place->second) = value;
    };
    for (const auto& [field, value] : earlier)
        add(field, value);
    for (const auto& [field, value] : later)
        add(field, value);
    return RecordData::make(content);
}

std::size_t BusFields::bytesOf(const tivra::Record& record) {
    std::size_t bytes = sizeof(RecordData) + record.symbol().size();
    for (const auto& [field, value] : record) {
        bytes += sizeof(RecordData::Slot);
        if (value.type() == tivra::Value::Type::Text)
            bytes += value.as<std::string_view>().size();
    }
    return bytes;
}

} // namespace tivra_python
