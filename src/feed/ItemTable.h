#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace tivra_internal {

class FeedItem;

/// The items that one stream has met, by source and symbol: open addressing, so that a message finds its item
/// with one look as a rule. Items that are gone leave when it grows. @thread that delivers for the hub
class ItemTable {
public:
    /// Null when there is none.
    [[nodiscard]] FeedItem* find(int source, std::string_view symbol) const noexcept {
        if (m_slots.empty())
            return nullptr;
        const Key key(source, symbol);
        return m_slots[placeOf(key, symbol)].item.get();
    }
    /// One that is in it under that name is replaced.
    void insert(int source, std::string_view symbol, std::shared_ptr<FeedItem> item);

    template<class Action>
    void forEach(Action&& action) const {
        for (const Slot& slot : m_slots)
            if (slot.item != nullptr)
                action(*slot.item);
    }

private:
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
    struct Slot {
        Key key;
        std::shared_ptr<FeedItem> item; ///< null in an empty slot
    };

    template<class T>
    [[nodiscard]] static std::uint64_t load(const char* from) noexcept {
        T value;
        std::memcpy(&value, from, sizeof value);
        return value;
    }
    /// Where it stands, or the empty slot where it would.
    [[nodiscard]] std::size_t placeOf(const Key& key, std::string_view symbol) const noexcept {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t place = key.hash() & mask;
        while (m_slots[place].item != nullptr) {
            if (m_slots[place].key == key && (key.isWhole() || hasSymbol(m_slots[place], symbol)))
                break;
            place = (place + 1) & mask;
        }
        return place;
    }
    [[nodiscard]] static bool hasSymbol(const Slot& slot, std::string_view symbol) noexcept;
    void grow();

    std::vector<Slot> m_slots; ///< a power of two of them, half full at most
    std::size_t m_count = 0;
};

} // namespace tivra_internal
