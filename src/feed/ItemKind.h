#pragma once

#include <request/Commands.h>

namespace tivra_internal {

/// What a subscription is for, with what it takes at a hub.
enum class ItemKind : unsigned char { Symbol, OrderBook, Pattern };

/// The present state, and then updates.
[[nodiscard]] constexpr tivra::Commands subscribeCommand(ItemKind kind) noexcept {
    switch (kind) {
    case ItemKind::OrderBook:
        return tivra::QUERYDEPTHANDSUBSCRIBE;
    case ItemKind::Pattern:
        return tivra::QUERYSNAPANDSUBSCRIBEWILDCARD;
    default:
        return tivra::QUERYSNAPANDSUBSCRIBE;
    }
}

/// The present state alone.
[[nodiscard]] constexpr tivra::Commands queryCommand(ItemKind kind) noexcept {
    switch (kind) {
    case ItemKind::OrderBook:
        return tivra::QUERYDEPTH;
    case ItemKind::Pattern:
        return tivra::QUERYWILDCARD;
    default:
        return tivra::QUERYSNAP;
    }
}

} // namespace tivra_internal
