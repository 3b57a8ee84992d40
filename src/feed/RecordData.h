#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <feed/Record.h>
#include <feed/Value.h>

#include "feed/FieldTable.h"
#include "feed/RecordPool.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HubFields;

/// What a Record holds: the fields of a message and its texts, in the one block of memory that the record's
/// owners share. It refers to names of the field table alone, so that the hub may go.
class RecordData {
    /// Only make() knows how much room there is after the object.
    struct Key {};

public:
    struct Slot {
        const FieldEntry* field;
        tivra::Value value;
    };

    /// See make().
    template<class Content>
    RecordData(Key, const Content& content);

    [[nodiscard]] static tivra::Record copyOf(const KVNAPI::Message& message, HubFields& fields);
    /// A record of what `content` shows: table(), source(), symbol(), size(), and by index slotAt() and
    /// textLengthAt(), which is 0 for what isn't a text.
    template<class Content>
    [[nodiscard]] static tivra::Record make(const Content& content);
    /// Puts the values of a message into a record that nobody else has: in place of those that it has of the
    /// same fields, else after them.
    static void merge(tivra::Record& record, const KVNAPI::Message& message, HubFields& fields);
    /// Of the memory that the record takes.
    [[nodiscard]] static std::size_t bytesOf(const tivra::Record& record) noexcept;

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return m_table; }
    [[nodiscard]] std::string_view symbol() const noexcept { return m_symbol; }
    [[nodiscard]] int source() const noexcept { return m_source; }
    [[nodiscard]] std::size_t size() const noexcept { return m_size; }
    [[nodiscard]] const Slot& operator[](std::size_t index) const noexcept { return m_slots[index]; }

private:
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
            return static_cast<T*>(RecordPool::take(count * sizeof(T) + room));
        }
        void deallocate(T* block, std::size_t count) noexcept {
            RecordPool::giveBack(block, count * sizeof(T) + room);
        }

        template<class U>
        friend bool operator==(const RoomAfter& a, const RoomAfter<U>& b) noexcept {
            return a.room == b.room;
        }
    };

    /// Copies a text to where the next one goes.
    [[nodiscard]] static std::string_view keep(std::string_view text, char*& next) noexcept {
        if (!text.empty())
            std::memcpy(next, text.data(), text.size());
        return {std::exchange(next, next + text.size()), text.size()};
    }
    /// Whether every value of the message could go where the record has one of that field.
    [[nodiscard]] bool replace(const KVNAPI::Message& message, HubFields& fields);

    std::shared_ptr<FieldTable> m_table; ///< what the slots refer to
    std::string_view m_symbol;
    std::size_t m_room; ///< bytes after the object
    int m_source = 0;
    std::size_t m_size = 0;
    Slot* m_slots = nullptr;
};

template<class Content>
RecordData::RecordData(Key, const Content& content)
    : m_table(content.table())
    , m_source(content.source())
    , m_size(content.size())
    , m_slots(reinterpret_cast<Slot*>(this + 1)) {
    static_assert(alignof(Slot) <= alignof(RecordData));
    char* const begin = reinterpret_cast<char*>(m_slots);
    char* next = begin + m_size * sizeof(Slot);
    m_symbol = keep(content.symbol(), next);
    for (std::size_t i = 0; i < m_size; ++i) {
        Slot slot = content.slotAt(i);
        if (slot.value.type() == tivra::Value::Type::Text)
            slot.value = tivra::Value::ofText(keep(slot.value.template as<std::string_view>(), next));
        new (m_slots + i) Slot(slot);
    }
    m_room = static_cast<std::size_t>(next - begin);
}

template<class Content>
tivra::Record RecordData::make(const Content& content) {
    std::size_t room = content.size() * sizeof(Slot) + content.symbol().size();
    for (std::size_t i = 0; i < content.size(); ++i)
        room += content.textLengthAt(i);
    return tivra::Record(std::allocate_shared<RecordData>(RoomAfter<RecordData>(room), Key{}, content));
}

} // namespace tivra_internal
