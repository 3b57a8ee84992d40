#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <feed/Record.h>
#include <feed/Value.h>

#include "feed/FieldTable.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HubFields;

/// What a Record holds: the fields of a message and its texts, in the one block of memory that the record's
/// owners share. It refers to names of the field table alone, so that the hub may go.
class RecordData {
    /// Only copyOf() knows how much room there is after the object.
    struct Key {};

public:
    struct Slot {
        const FieldEntry* field;
        tivra::Value value;
    };

    RecordData(Key, const KVNAPI::Message& message, HubFields& fields);

    [[nodiscard]] static tivra::Record copyOf(const KVNAPI::Message& message, HubFields& fields);

    [[nodiscard]] std::string_view symbol() const noexcept { return m_symbol; }
    [[nodiscard]] int source() const noexcept { return m_source; }
    [[nodiscard]] std::size_t size() const noexcept { return m_size; }
    [[nodiscard]] const Slot& operator[](std::size_t index) const noexcept { return m_slots[index]; }

private:
    std::shared_ptr<FieldTable> m_table; ///< what the slots refer to
    std::string_view m_symbol;
    int m_source = 0;
    std::size_t m_size = 0;
    Slot* m_slots = nullptr;
};

} // namespace tivra_internal
