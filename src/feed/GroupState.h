#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <feed/Instrument.h>
#include <feed/SubscriptionGroup.h>
#include <tp/Mutex.h>

#include "LockOrder.h"

#include "feed/SubscriptionState.h"

namespace tivra_internal {

class FeedRegistry;

/// The subscriptions of a group, by source and symbol. @thread any
class GroupState {
public:
    GroupState(std::shared_ptr<FeedRegistry> registry, tivra::SubscriptionHandlers handlers);
    GroupState(const GroupState&) = delete;
    GroupState& operator=(const GroupState&) = delete;

    /// @throws tivra::Error with nothing added
    std::size_t add(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    std::size_t remove(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::size_t size() const TP_EXCLUDES(m_mutex);
    /// Null when it isn't there.
    [[nodiscard]] std::shared_ptr<SubscriptionState> find(const tivra::Instrument& instrument) const
        TP_EXCLUDES(m_mutex);
    void forEach(const std::function<void(SubscriptionState&)>& call) const TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::GroupStatistics statistics() const TP_EXCLUDES(m_mutex);
    void close() TP_EXCLUDES(m_mutex);

private:
    using One = std::shared_ptr<SubscriptionState>;

    /// What a subscription is found by.
    struct Key {
        int source;
        std::string_view symbol;
        // NOLINTBEGIN(google-explicit-constructor): the set hashes and compares what makes one
        Key(const tivra::Instrument& instrument) noexcept
            : source(instrument.source), symbol(instrument.symbol) {}
        Key(const One& one) noexcept : source(one->source()), symbol(one->symbol()) {}
        // NOLINTEND(google-explicit-constructor)
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        using is_transparent = void;
        [[nodiscard]] std::size_t operator()(const Key& key) const noexcept {
            return std::hash<std::string_view>()(key.symbol) * 31 + static_cast<std::size_t>(key.source);
        }
    };
    struct Equal {
        using is_transparent = void;
        [[nodiscard]] bool operator()(const Key& a, const Key& b) const noexcept { return a == b; }
    };
    using Set = std::unordered_set<One, Hash, Equal>;

    [[nodiscard]] std::vector<One> copy() const TP_EXCLUDES(m_mutex);
    [[nodiscard]] One subscribe(const tivra::Instrument& instrument) TP_EXCLUDES(m_mutex);
    void undo(const std::vector<One>& added) TP_EXCLUDES(m_mutex);

    const std::shared_ptr<FeedRegistry> m_registry;
    mutable tp::Mutex m_mutex{kLockFeedGroup};                     ///< guards what follows
    SubscriptionState::Handlers m_handlers TP_GUARDED_BY(m_mutex); ///< null once it is closed
    Set m_subscriptions TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
