#include "feed/RecordData.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <feed/Error.h>

#include "feed/HubFields.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"

namespace tivra_internal {
namespace {

[[nodiscard]] bool isText(const KVNAPI::Message& message, int index) noexcept {
    return message.tokenOf(index)->storage == KVNAPI::Token::TY_STRING;
}

/// What make() copies from.
class MessageContent {
public:
    MessageContent(const KVNAPI::Message& message, HubFields& fields)
        : m_message(message), m_fields(fields) {}

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return m_fields.table(); }
    [[nodiscard]] int source() const noexcept {
        return m_message.exchange != nullptr ? m_message.exchange->id : 0;
    }
    [[nodiscard]] std::string_view symbol() const noexcept {
        return {m_message.symbol.buf, m_message.symbol.len};
    }
    [[nodiscard]] std::size_t size() const noexcept {
        return static_cast<std::size_t>(m_message.pairCount());
    }
    [[nodiscard]] std::size_t textLengthAt(std::size_t index) const noexcept {
        const int position = static_cast<int>(index);
        return isText(m_message, position) ? m_message.readPair(position).s.len : 0;
    }
    [[nodiscard]] RecordData::Slot slotAt(std::size_t index) const {
        const int position = static_cast<int>(index);
        return {&m_fields.fieldOf(*m_message.tokenOf(position)), HubFields::valueOf(m_message, position)};
    }

private:
    const KVNAPI::Message& m_message;
    HubFields& m_fields;
};

/// A record with other slots than its own.
struct SlotContent {
    const RecordData& record;
    const std::vector<RecordData::Slot>& slots;

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return record.table(); }
    [[nodiscard]] int source() const noexcept { return record.source(); }
    [[nodiscard]] std::string_view symbol() const noexcept { return record.symbol(); }
    [[nodiscard]] std::size_t size() const noexcept { return slots.size(); }
    [[nodiscard]] std::size_t textLengthAt(std::size_t index) const {
        const tivra::Value& value = slots[index].value;
        return value.type() == tivra::Value::Type::Text ? value.as<std::string_view>().size() : 0;
    }
    [[nodiscard]] RecordData::Slot slotAt(std::size_t index) const { return slots[index]; }
};

} // namespace

tivra::Record RecordData::copyOf(const KVNAPI::Message& message, HubFields& fields) {
    return make(MessageContent(message, fields));
}

std::size_t RecordData::bytesOf(const tivra::Record& record) noexcept {
    return record.m_data != nullptr ? sizeof(RecordData) + record.m_data->m_room : 0;
}

/// Updates of one symbol repeat their fields in their order as a rule, so the next field is looked for after
/// the last one.
bool RecordData::replace(const KVNAPI::Message& message, HubFields& fields) {
    std::size_t place = 0;
    for (int i = 0; i < message.pairCount(); ++i) {
        const FieldEntry* const field = &fields.fieldOf(*message.tokenOf(i));
        std::size_t seen = 0;
        while (seen < m_size && m_slots[place].field != field) {
            ++seen;
            place = place + 1 < m_size ? place + 1 : 0;
        }
        if (seen == m_size)
            return false;
        tivra::Value& old = m_slots[place].value;
        place = place + 1 < m_size ? place + 1 : 0;
        const tivra::Value value = HubFields::valueOf(message, i);
        if (value.type() != tivra::Value::Type::Text) {
            old = value;
            continue;
        }
        if (old.type() != tivra::Value::Type::Text)
            return false;
        const std::string_view text = value.as<std::string_view>();
        const std::string_view room = old.as<std::string_view>();
        if (text.size() > room.size())
            return false;
        char* next = const_cast<char*>(room.data()); // it stands in this record's own room
        old = tivra::Value::ofText(keep(text, next));
    }
    return true;
}

void RecordData::merge(tivra::Record& record, const KVNAPI::Message& message, HubFields& fields) {
    if (record.m_data == nullptr) {
        record = copyOf(message, fields);
        return;
    }
    // Made by make(), and nobody else has it.
    if (const_cast<RecordData&>(*record.m_data).replace(message, fields))
        return;
    const RecordData& old = *record.m_data;
    std::vector<Slot> slots(old.m_slots, old.m_slots + old.m_size);
    const MessageContent added(message, fields);
    for (std::size_t i = 0; i < added.size(); ++i) {
        const Slot slot = added.slotAt(i);
        const auto same = std::find_if(slots.begin(), slots.end(),
                                       [&slot](const Slot& one) { return one.field == slot.field; });
        if (same != slots.end())
            *same = slot;
        else
            slots.push_back(slot);
    }
    record = make(SlotContent{old, slots});
}

} // namespace tivra_internal

namespace tivra {

using tivra_internal::FieldEntry;
using tivra_internal::FieldTable;

std::string_view Record::symbol() const noexcept {
    return m_data != nullptr ? m_data->symbol() : std::string_view();
}

int Record::source() const noexcept {
    return m_data != nullptr ? m_data->source() : 0;
}

std::size_t Record::size() const noexcept {
    return m_data != nullptr ? m_data->size() : 0;
}

bool Record::find(const Field& field, Value& value) const {
    const FieldEntry* const wanted = FieldTable::entryOf(field);
    for (std::size_t i = 0; i < size(); ++i) {
        if ((*m_data)[i].field != wanted)
            continue;
        value = (*m_data)[i].value;
        return true;
    }
    return false;
}

Record::Entry Record::entryAt(std::size_t index) const {
    const tivra_internal::RecordData::Slot& slot = (*m_data)[index];
    return {FieldTable::fieldOf(*slot.field), slot.value};
}

} // namespace tivra
