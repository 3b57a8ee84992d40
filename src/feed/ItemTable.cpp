#include "feed/ItemTable.h"

#include <utility>

#include "feed/FeedItem.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kFirstSize = 64;

} // namespace

bool ItemTable::hasSymbol(const Slot& slot, std::string_view symbol) noexcept {
    return slot.item->symbol() == symbol;
}

void ItemTable::insert(int source, std::string_view symbol, std::shared_ptr<FeedItem> item) {
    if (2 * (m_count + 1) > m_slots.size())
        grow();
    const Key key(source, symbol);
    Slot& slot = m_slots[placeOf(key, symbol)];
    if (slot.item == nullptr)
        ++m_count;
    slot = {key, std::move(item)};
}

void ItemTable::grow() {
    std::size_t staying = 0;
    forEach([&staying](const FeedItem& item) {
        if (!item.isGone())
            ++staying;
    });
    std::size_t size = kFirstSize;
    while (size < 4 * (staying + 1))
        size *= 2;
    std::vector<Slot> old(size);
    old.swap(m_slots);
    m_count = staying;
    for (Slot& slot : old)
        if (slot.item != nullptr && !slot.item->isGone()) {
            const std::size_t place = placeOf(slot.key, slot.item->symbol());
            m_slots[place] = std::move(slot);
        }
}

} // namespace tivra_internal
