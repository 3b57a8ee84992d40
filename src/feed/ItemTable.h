#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "feed/FeedItem.h"

namespace tivra_internal {

/// Who gets the updates of the symbols that one stream has met, by source and symbol: open addressing, with a
/// cache line for each symbol, so that a message finds its item with one look as a rule. What is gone leaves
/// when the table grows. @thread that delivers for the hub
class ItemTable {
    static constexpr std::size_t kWhole = 16;

    /// Two loads that may overlap have all bytes of a symbol of up to kWhole, which is every usual one: then
    /// keys are equal exactly when source and symbol are.
    struct Key {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        std::uint64_t shape = 0; ///< source and length

        Key() = default;
        Key(int source, std::string_view symbol) noexcept
            : shape(static_cast<std::uint64_t>(static_cast<std::uint32_t>(source)) | symbol.size() << 32) {
            const char* const text = symbol.data();
            const std::size_t length = symbol.size();
            if (length >= 8) {
                begin = load<std::uint64_t>(text);
                end = load<std::uint64_t>(text + length - 8);
            } else if (length >= 4) {
                begin = load<std::uint32_t>(text);
                end = load<std::uint32_t>(text + length - 4);
            } else if (length > 0) {
                begin = static_cast<unsigned char>(text[0]);
                end = static_cast<std::uint64_t>(static_cast<unsigned char>(text[length / 2])) << 8 |
                      static_cast<unsigned char>(text[length - 1]);
            }
        }
        [[nodiscard]] std::size_t hash() const noexcept {
            constexpr std::uint64_t kMix = 0x9e3779b97f4a7c15U;
            std::uint64_t sum = (begin + shape) * kMix;
            sum = (sum ^ sum >> 32 ^ end) * kMix;
            return sum ^ sum >> 32;
        }
        [[nodiscard]] bool isWhole() const noexcept { return shape >> 32 <= kWhole; }
        [[nodiscard]] bool operator==(const Key&) const = default;
    };

public:
    using Items = std::vector<std::shared_ptr<FeedItem>>;

    /// The items of one symbol.
    class alignas(64) Slot {
    public:
        /// One of those that cover it isn't there any more: ask anew.
        [[nodiscard]] bool isOutdated() const noexcept {
            if (m_rare == nullptr)
                return m_item->isGone();
            bool isOutdated = false;
            forEach([&isOutdated](const FeedItem& item) { isOutdated = isOutdated || item.isGone(); });
            return isOutdated;
        }
        template<class Action>
        void forEach(Action&& action) const {
            action(*m_item);
            if (m_rare != nullptr)
                for (const std::shared_ptr<FeedItem>& item : m_rare->others)
                    action(*item);
        }

    private:
        friend class ItemTable;

        struct Rare {
            std::string symbol; ///< the whole of it, where the key isn't
            Items others;       ///< where a pattern or an order book covers it as well
        };

        Key m_key;
        std::shared_ptr<FeedItem> m_item; ///< null in an empty slot
        std::unique_ptr<Rare> m_rare;
    };

    /// Null when there is none.
    [[nodiscard]] const Slot* find(int source, std::string_view symbol) const noexcept {
        if (m_slots.empty())
            return nullptr;
        const Key key(source, symbol);
        const Slot& slot = m_slots[placeOf(key, symbol)];
        return slot.m_item != nullptr ? &slot : nullptr;
    }
    /// The symbol's updates go to these, at least one, and to nobody else. Slots that were found before may
    /// have moved.
    const Slot& set(int source, std::string_view symbol, Items items);
    /// Its updates go to that one too.
    void add(int source, std::string_view symbol, const std::shared_ptr<FeedItem>& item);

    [[nodiscard]] std::size_t size() const noexcept { return m_count; }
    /// Keeps what has been subscribed by name; what only patterns have covered is met again.
    void forgetMet();

    template<class Action>
    void forEach(Action&& action) const {
        for (const Slot& slot : m_slots)
            if (slot.m_item != nullptr)
                slot.forEach(action);
    }

private:
    template<class T>
    [[nodiscard]] static std::uint64_t load(const char* from) noexcept {
        T value;
        std::memcpy(&value, from, sizeof value);
        return value;
    }
    /// Where it stands, or the empty slot where it would.
    [[nodiscard]] std::size_t placeOf(const Key& key, std::string_view symbol) const noexcept {
        std::size_t place =
            (key.hash() >> 32) * m_slots.size() >> 32; // even over all slots, without a division
        while (m_slots[place].m_item != nullptr) {
            const Slot& slot = m_slots[place];
            if (slot.m_key == key && (key.isWhole() || slot.m_rare->symbol == symbol))
                break;
            place = place + 1 != m_slots.size() ? place + 1 : 0;
        }
        return place;
    }
    void grow();
    template<class Predicate>
    void rebuild(Predicate&& isStaying);

    std::vector<Slot> m_slots; ///< four fifths full at most, and fewer than 2^32
    std::size_t m_count = 0;
};

} // namespace tivra_internal
