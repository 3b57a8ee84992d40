#include "feed/ItemTable.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace tivra_internal {
namespace {

constexpr std::size_t kFirstSize = 64;

} // namespace

const ItemTable::Slot& ItemTable::set(int source, std::string_view symbol, Items items) {
    if (4 * (m_count + 1) > 3 * m_slots.size())
        grow();
    const Key key(source, symbol);
    Slot& slot = m_slots[placeOf(key, symbol)];
    if (slot.m_item == nullptr)
        ++m_count;
    slot.m_key = key;
    slot.m_item = std::move(items.front());
    items.erase(items.begin());
    slot.m_rare.reset();
    if (!key.isWhole() || !items.empty())
        slot.m_rare = std::make_unique<Slot::Rare>(
            Slot::Rare{key.isWhole() ? std::string() : std::string(symbol), std::move(items)});
    return slot;
}

void ItemTable::add(int source, std::string_view symbol, const std::shared_ptr<FeedItem>& item) {
    Items items;
    if (const Slot* const slot = find(source, symbol)) {
        bool isThere = false;
        slot->forEach([&](FeedItem& one) {
            isThere = isThere || &one == item.get();
            if (!one.isGone())
                items.push_back(one.shared_from_this());
        });
        if (isThere)
            return;
    }
    items.push_back(item);
    set(source, symbol, std::move(items));
}

void ItemTable::forgetMet() {
    std::unordered_set<std::shared_ptr<FeedItem>> items;
    forEach([&items](FeedItem& item) {
        if (!item.isGone())
            items.insert(item.shared_from_this());
    });
    m_slots.clear();
    m_count = 0;
    for (const std::shared_ptr<FeedItem>& item : items)
        add(item->source(), item->symbol(), item);
}

void ItemTable::grow() {
    const auto isStaying = [](const Slot& slot) {
        bool hasAny = false;
        if (slot.m_item != nullptr)
            slot.forEach([&](const FeedItem& item) { hasAny = hasAny || !item.isGone(); });
        return hasAny;
    };
    m_count = static_cast<std::size_t>(std::count_if(m_slots.begin(), m_slots.end(), isStaying));
    std::size_t size = kFirstSize;
    while (3 * size < 8 * (m_count + 1))
        size *= 2;
    std::vector<Slot> old(size);
    old.swap(m_slots);
    for (Slot& slot : old)
        if (isStaying(slot)) {
            const std::size_t place =
                placeOf(slot.m_key, slot.m_rare != nullptr ? std::string_view(slot.m_rare->symbol) : "");
            m_slots[place] = std::move(slot);
        }
}

} // namespace tivra_internal
