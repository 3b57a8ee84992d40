#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace tivra_internal {

class FeedItem;

/// The items that one stream has met, by source and symbol: open addressing, so that a message finds its item
/// in one or two cache lines. Items that are gone leave when it grows. @thread that delivers for the hub
class ItemTable {
public:
    /// Null when there is none.
    [[nodiscard]] FeedItem* find(int source, std::string_view symbol) const noexcept;
    /// One that is in it under that name is replaced.
    void insert(int source, std::string_view symbol, std::shared_ptr<FeedItem> item);

    template<class Action>
    void forEach(Action&& action) const {
        for (const Slot& slot : m_slots)
            if (slot.item != nullptr)
                action(*slot.item);
    }

private:
    struct Slot {
        std::size_t hash = 0;
        std::shared_ptr<FeedItem> item; ///< null in an empty slot
    };

    [[nodiscard]] static std::size_t hashOf(int source, std::string_view symbol) noexcept;
    [[nodiscard]] std::size_t placeOf(std::size_t hash, int source, std::string_view symbol) const noexcept;
    void grow();

    std::vector<Slot> m_slots; ///< a power of two of them, half full at most
    std::size_t m_count = 0;
};

} // namespace tivra_internal
