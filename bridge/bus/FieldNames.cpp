#include "bus/FieldNames.h"

#include "bus/JsonText.h"

#include <utility>

namespace tivra_bus {

namespace {

constexpr std::size_t kFirstSlots = 256;
/// A hub may name fields without end: what is above is forgotten before the next message.
constexpr std::size_t kMostNames = 8192;

} // namespace

FieldNames& FieldNames::ofThread() {
    thread_local FieldNames names;
    return names;
}

void FieldNames::begin() {
    if (m_slots.empty() || m_count > kMostNames) {
        m_slots.assign(kFirstSlots, {});
        m_count = 0;
    }
    ++m_message;
}

std::string_view FieldNames::next(const std::string& name) {
    Slot& slot = slotOf(name);
    if (std::exchange(slot.message, m_message) == m_message)
        return {};
    return slot.text;
}

FieldNames::Slot& FieldNames::slotAt(const std::string* place) {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t at = reinterpret_cast<std::uintptr_t>(place) / 16 * 0x9E3779B97F4A7C15U >> 32 & mask;
    while (m_slots[at].place != place && m_slots[at].place != nullptr)
        at = (at + 1) & mask;
    return m_slots[at];
}

FieldNames::Slot& FieldNames::slotOf(const std::string& name) {
    Slot* slot = &slotAt(&name);
    if (slot->place == &name && slot->name == name)
        return *slot;
    if (slot->place == nullptr && 2 * ++m_count >= m_slots.size()) {
        grow();
        slot = &slotAt(&name);
    }
    // A name may stand where another has been.
    *slot = {&name, name, ",", 0};
    appendQuoted(slot->text, name);
    slot->text += ':';
    return *slot;
}

void FieldNames::grow() {
    std::vector<Slot> old(2 * m_slots.size());
    old.swap(m_slots);
    for (Slot& slot : old)
        if (slot.place != nullptr)
            slotAt(slot.place) = std::move(slot);
}

} // namespace tivra_bus
