#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "TivraApi.h"
#include "feed/Error.h"
#include "feed/Instrument.h"
#include "feed/Subscription.h"

namespace tivra_internal {
class FeedImpl;
class GroupState;
} // namespace tivra_internal

namespace tivra {

/// How many subscriptions of a group are in which state.
struct GroupStatistics {
    std::size_t subscriptions = 0; ///< all of them
    std::size_t pending = 0;       ///< those in DataState::Pending
    std::size_t live = 0;          ///< those in DataState::Live
    std::size_t stale = 0;         ///< those in DataState::Stale
    std::size_t recovering = 0;    ///< those in DataState::Recovering
    std::size_t refused = 0;       ///< those in DataState::Refused
    std::uint64_t updates = 0;     ///< handed to them in all, images included
    std::uint64_t gaps = 0;        ///< reported to them in all
};

/// Subscriptions of many symbols that share their handlers, and are made and ended together. Each has a state
/// of its own; SubscriptionView::symbol() and Update::symbol() say which one a callback is about. A million
/// of them are no trouble: memory and time grow with their number.
/// @thread any; calls of several threads may overlap
class TIVRA_API SubscriptionGroup {
public:
    /// No group, as one that was moved from: it is empty, and add() throws Error (Closed).
    SubscriptionGroup() = default;
    /// Takes the subscriptions over; callbacks go on.
    SubscriptionGroup(SubscriptionGroup&&) noexcept;
    /// The same; the group that was here is closed.
    SubscriptionGroup& operator=(SubscriptionGroup&&) noexcept;
    /// Closes.
    ~SubscriptionGroup();

    /// Subscribes all of these; those that are in the group already are left as they are.
    /// @return how many are new
    /// @throws Error (InvalidArgument) for a symbol or source that can't be asked for, before anything is
    /// sent;
    ///         (QueueFull) with none of them added; (Closed)
    std::size_t add(const std::vector<Instrument>& instruments);
    /// Ends these; what isn't in the group is passed over. When it returns no callback of them runs, but for
    /// the one that this is called in, and none will come (Subscription::close has the details).
    /// @return how many have ended
    std::size_t remove(const std::vector<Instrument>& instruments);

    /// How many subscriptions are in the group, those that a hub has refused included.
    std::size_t size() const;
    /// Whether the symbol was added and not removed, whatever its state.
    bool contains(const Instrument& instrument) const;
    /// Nothing for a symbol that isn't in the group.
    std::optional<DataState> state(const Instrument& instrument) const;
    /// Why the hub has refused a symbol; nothing in any other case.
    std::optional<Error> error(const Instrument& instrument) const;
    /// Calls for each subscription, in no particular order. The call may do anything but change this group.
    void forEach(const std::function<void(const SubscriptionView&)>& call) const;
    /// Takes time with the number of subscriptions.
    GroupStatistics statistics() const;

    /// Ends all of them, as remove() does. The group is of no further use.
    void close();

private:
    friend class tivra_internal::FeedImpl;
    friend class Feed;

    explicit SubscriptionGroup(std::shared_ptr<tivra_internal::GroupState> state) noexcept;

    std::shared_ptr<tivra_internal::GroupState> m_state;
};

} // namespace tivra
