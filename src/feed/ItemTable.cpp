#include "feed/ItemTable.h"

#include <algorithm>
#include <utility>

namespace tivra_internal {
namespace {

constexpr std::size_t kFirstSize = 64;
/// How full the table may get, and is after it has grown, in percent. There may be a million slots of 64
/// bytes, so it grows by a third of itself and not by the whole.
constexpr std::size_t kFullest = 80;
constexpr std::size_t kAfterGrowth = 60;

} // namespace

const ItemTable::Slot& ItemTable::set(int source, std::string_view symbol, Items items) {
    if (100 * (m_count + 1) > kFullest * m_slots.size())
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

void ItemTable::grow() {
    rebuild([](const Slot& slot) {
        bool hasAny = false;
        slot.forEach([&](const FeedItem& item) { hasAny = hasAny || !item.isGone(); });
        return hasAny;
    });
}

void ItemTable::forgetMet() {
    rebuild([](const Slot& slot) {
        bool isNamed = false;
        slot.forEach([&](const FeedItem& item) {
            isNamed = isNamed || (!item.isGone() && Key(item.source(), item.symbol()) == slot.m_key);
        });
        return isNamed;
    });
}

/// Into room for one more than stay.
template<class Predicate>
void ItemTable::rebuild(Predicate&& isStaying) {
    m_count = 0;
    for (Slot& slot : m_slots)
        if (slot.m_item != nullptr && !isStaying(slot))
            slot = Slot();
        else if (slot.m_item != nullptr)
            ++m_count;
    std::vector<Slot> old(std::max(kFirstSize, 100 * (m_count + 1) / kAfterGrowth));
    old.swap(m_slots);
    for (Slot& slot : old)
        if (slot.m_item != nullptr) {
            const std::size_t place =
                placeOf(slot.m_key, slot.m_rare != nullptr ? std::string_view(slot.m_rare->symbol) : "");
            m_slots[place] = std::move(slot);
        }
}

} // namespace tivra_internal
