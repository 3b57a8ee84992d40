#include "feed/ItemTable.h"

#include <functional>
#include <utility>

#include "feed/FeedItem.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kFirstSize = 64;
/// Spreads sources over the table.
constexpr std::size_t kGolden = 0x9e3779b97f4a7c15U;

} // namespace

std::size_t ItemTable::hashOf(int source, std::string_view symbol) noexcept {
    return std::hash<std::string_view>()(symbol) + static_cast<std::size_t>(source) * kGolden;
}

/// Where it stands, or the empty slot where it would.
std::size_t ItemTable::placeOf(std::size_t hash, int source, std::string_view symbol) const noexcept {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t place = hash & mask;
    while (m_slots[place].item != nullptr) {
        const Slot& slot = m_slots[place];
        if (slot.hash == hash && slot.item->source() == source && slot.item->symbol() == symbol)
            break;
        place = (place + 1) & mask;
    }
    return place;
}

FeedItem* ItemTable::find(int source, std::string_view symbol) const noexcept {
    if (m_slots.empty())
        return nullptr;
    return m_slots[placeOf(hashOf(source, symbol), source, symbol)].item.get();
}

void ItemTable::insert(int source, std::string_view symbol, std::shared_ptr<FeedItem> item) {
    if (2 * (m_count + 1) > m_slots.size())
        grow();
    const std::size_t hash = hashOf(source, symbol);
    Slot& slot = m_slots[placeOf(hash, source, symbol)];
    if (slot.item == nullptr)
        ++m_count;
    slot = {hash, std::move(item)};
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
            const std::size_t place = placeOf(slot.hash, slot.item->source(), slot.item->symbol());
            m_slots[place] = std::move(slot);
        }
}

} // namespace tivra_internal
