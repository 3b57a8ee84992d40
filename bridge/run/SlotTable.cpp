#include "run/SlotTable.h"

namespace tivra_bus {

SymbolSlot& SlotTable::enter(const tivra::SubscriptionView& subscription) {
    SymbolSlot* slot = nullptr;
    if (const auto found = m_bySymbol.find({subscription.source(), subscription.symbol()});
        found != m_bySymbol.end()) {
        slot = found->second;
    } else {
        slot = &m_slots.emplace_back(subscription.source(), subscription.symbol(),
                                     static_cast<std::uint32_t>(m_slots.size()));
        m_bySymbol.emplace(std::pair(slot->name.source, std::string_view(slot->name.symbol)), slot);
    }
    if (2 * ++m_used >= m_places.size())
        grow();
    placeOf(subscription.id()) = {subscription.id(), slot};
    return *slot;
}

const SymbolSlot* SlotTable::find(int source, std::string_view symbol) const {
    const auto found = m_bySymbol.find({source, symbol});
    return found != m_bySymbol.end() ? found->second : nullptr;
}

void SlotTable::grow() {
    std::vector<Place> old(2 * m_places.size());
    old.swap(m_places);
    for (const Place& place : old)
        if (place.slot != nullptr)
            placeOf(place.subscription) = place;
}

} // namespace tivra_bus
