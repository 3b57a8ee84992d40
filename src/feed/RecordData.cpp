#include "feed/RecordData.h"

#include <cstring>
#include <new>
#include <utility>

#include <feed/Error.h>

#include "feed/HubFields.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"

namespace tivra_internal {
namespace {

/// Makes room after the one object that is allocated with it, for what that object holds.
template<class T>
struct RoomAfter {
    using value_type = T;

    std::size_t room;

    explicit RoomAfter(std::size_t bytes) noexcept : room(bytes) {}
    template<class U>
    RoomAfter(const RoomAfter<U>& other) // NOLINT(google-explicit-constructor): allocators are rebound
        noexcept
        : room(other.room) {}

    [[nodiscard]] T* allocate(std::size_t count) {
        return static_cast<T*>(::operator new(count * sizeof(T) + room));
    }
    void deallocate(T* block, std::size_t) noexcept { ::operator delete(block); }

    template<class U>
    friend bool operator==(const RoomAfter& a, const RoomAfter<U>& b) noexcept {
        return a.room == b.room;
    }
};

[[nodiscard]] bool isText(const KVNAPI::Message& message, int index) noexcept {
    return message.tokenOf(index)->storage == KVNAPI::Token::TY_STRING;
}

[[nodiscard]] std::size_t roomFor(const KVNAPI::Message& message) {
    std::size_t room =
        static_cast<std::size_t>(message.pairCount()) * sizeof(RecordData::Slot) + message.symbol.len;
    for (int i = 0; i < message.pairCount(); ++i)
        if (isText(message, i))
            room += message.readPair(i).s.len;
    return room;
}

/// Copies a text to where the next one goes.
[[nodiscard]] std::string_view keep(std::string_view text, char*& next) noexcept {
    if (!text.empty())
        std::memcpy(next, text.data(), text.size());
    return {std::exchange(next, next + text.size()), text.size()};
}

} // namespace

RecordData::RecordData(Key, const KVNAPI::Message& message, HubFields& fields)
    : m_table(fields.table())
    , m_source(message.exchange != nullptr ? message.exchange->id : 0)
    , m_size(static_cast<std::size_t>(message.pairCount()))
    , m_slots(reinterpret_cast<Slot*>(this + 1)) {
    static_assert(alignof(Slot) <= alignof(RecordData));
    char* next = reinterpret_cast<char*>(m_slots + m_size);
    m_symbol = keep({message.symbol.buf, message.symbol.len}, next);
    for (std::size_t i = 0; i < m_size; ++i) {
        const int index = static_cast<int>(i);
        tivra::Value value = HubFields::valueOf(message, index);
        if (value.type() == tivra::Value::Type::Text)
            value = tivra::Value::ofText(keep(value.as<std::string_view>(), next));
        new (m_slots + i) Slot{&fields.fieldOf(*message.tokenOf(index)), value};
    }
}

tivra::Record RecordData::copyOf(const KVNAPI::Message& message, HubFields& fields) {
    return tivra::Record(std::allocate_shared<const RecordData>(RoomAfter<RecordData>(roomFor(message)),
                                                                Key{}, message, fields));
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
