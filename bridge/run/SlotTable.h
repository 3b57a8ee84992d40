#pragma once

#include "run/SymbolSlot.h"

#include <feed/Subscription.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tivra_bus {

/// The slots of a partition's symbols, which never move. A symbol is looked for by name when its subscription
/// is seen first, and by the subscription's number from then on. @thread one at a time
class SlotTable {
public:
    /// Made where there is none.
    [[nodiscard]] SymbolSlot& of(const tivra::SubscriptionView& subscription);
    /// Null for a symbol that nothing has come for.
    [[nodiscard]] const SymbolSlot* find(int source, std::string_view symbol) const;
    [[nodiscard]] SymbolSlot& operator[](std::uint32_t index) { return m_slots[index]; }
    [[nodiscard]] auto begin() { return m_slots.begin(); }
    [[nodiscard]] auto end() { return m_slots.end(); }

private:
    struct Place {
        std::uint64_t subscription = 0; ///< 0 for a free place
        SymbolSlot* slot = nullptr;
    };
    struct KeyHash {
        std::size_t operator()(const std::pair<int, std::string_view>& key) const {
            return std::hash<std::string_view>()(key.second) + static_cast<std::size_t>(key.first);
        }
    };

    /// The one of a subscription, or the free one for it.
    [[nodiscard]] Place& placeOf(std::uint64_t subscription) {
        // Numbers of subscriptions that are made together follow one another.
        const std::size_t mask = m_places.size() - 1;
        std::size_t at = subscription & mask;
        while (m_places[at].subscription != subscription && m_places[at].slot != nullptr)
            at = (at + 1) & mask;
        return m_places[at];
    }
    [[nodiscard]] SymbolSlot& enter(const tivra::SubscriptionView& subscription);
    void grow();

    std::deque<SymbolSlot> m_slots;
    std::unordered_map<std::pair<int, std::string_view>, SymbolSlot*, KeyHash> m_bySymbol;
    std::vector<Place> m_places =
        std::vector<Place>(64); ///< a power of two, of which less than half are in use
    std::size_t m_used = 0;
};

inline SymbolSlot& SlotTable::of(const tivra::SubscriptionView& subscription) {
    const Place& place = placeOf(subscription.id());
    return place.slot != nullptr ? *place.slot : enter(subscription);
}

} // namespace tivra_bus
