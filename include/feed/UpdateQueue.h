#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TivraApi.h"
#include "feed/Field.h"
#include "feed/Instrument.h"
#include "feed/Record.h"
#include "feed/Subscription.h"
#include "feed/Value.h"

namespace tivra_internal {
class QueueState;
} // namespace tivra_internal

namespace tivra {

/// What a full queue does.
enum class QueuePolicy {
    /// Nothing is lost: the thread that delivers waits, so the hub is read no faster than the queue is.
    Block,
    /// The oldest updates make room for new ones.
    DropOldest,
    /// What waits for a symbol is merged into one event, full or not: each field with its last value, where
    /// the first of them stood. An image takes the place of what came before it. So a display has at most one
    /// event of each symbol to draw, with all that has changed. A queue that has no room for the symbols, all
    /// the same, drops the oldest. Not for order books, whose lines share a symbol.
    Latest
};

/// How much a queue holds, and what it does when it is full.
struct QueueOptions {
    /// What happens when maxUpdates or maxBytes is reached.
    QueuePolicy policy = QueuePolicy::Block;
    /// Updates that may wait, at least 1. With Block, states and gaps count too.
    std::size_t maxUpdates = 100'000;
    /// Bytes that they may take, at least 1. One update is accepted whatever its size.
    std::size_t maxBytes = 64U << 20;
    /// QueueEvent::time of an update is its Update::receivedAt(), which costs a look at the clock for each,
    /// and not to about a millisecond.
    bool exactTimes = false;
};

/// What a queue hands out: an update, a change of state or a gap of one subscription. Valid during the call
/// that it is handed to; the record may be kept.
struct QueueEvent {
    /// What has come.
    enum class Kind {
        Image,   ///< a part of the present state
        Update,  ///< what has changed
        Refresh, ///< the present state, sent without being asked for
        State,   ///< see `state`
        Gap      ///< see `gap`
    };
    Kind kind = Kind::Update;           ///< what it is
    std::uint64_t subscription = 0;     ///< see Subscription::id
    int source = 0;                     ///< the number of the source
    std::string_view symbol;            ///< that of the update; of a state or a gap, what was subscribed
    Record record;                      ///< of an update; empty for State and Gap
    const StateChange* state = nullptr; ///< of State, else null
    const Gap* gap = nullptr;           ///< of Gap, else null
    std::chrono::system_clock::time_point time{}; ///< when it came, or the last that is merged into it
    /// Messages of this symbol that have been dropped since its last event.
    std::uint64_t dropped = 0;
    std::uint64_t droppedBytes = 0; ///< the memory that they took
    /// Messages that have been merged into this one. Of a state or a gap: how many more it stands for.
    std::uint64_t merged = 0;

    /// The value of a field of the record, if it has it: Record::get.
    /// @throws Error (WrongType) when the field holds another type
    template<class T>
    std::optional<T> get(const Field& field) const {
        return record.get<T>(field);
    }
};

/// How a queue is doing: what waits, and what has become of the rest.
struct QueueStatistics {
    std::size_t events = 0;         ///< that wait
    std::size_t updates = 0;        ///< those of them that aren't states or gaps
    std::size_t bytes = 0;          ///< that the updates take
    std::uint64_t entered = 0;      ///< updates: each has been taken, waits, or was merged or dropped
    std::uint64_t taken = 0;        ///< updates that poll() has handed out
    std::uint64_t merged = 0;       ///< updates that were merged into another one
    std::uint64_t dropped = 0;      ///< updates that made room for others, with those merged into them
    std::uint64_t droppedBytes = 0; ///< the memory that they took
};

/// What a queue has dropped and merged of one symbol of a subscription.
struct QueueCounts {
    std::uint64_t subscription = 0; ///< see Subscription::id
    int source = 0;                 ///< the number of the source
    std::string symbol;             ///< that of the updates
    std::uint64_t dropped = 0;      ///< updates that made room for others
    std::uint64_t merged = 0;       ///< updates that were merged into another one
};

/// Takes what comes for subscriptions and hands it out on a thread of the application, when that asks for it.
/// It is bounded, and what it does when it is full is its policy.
///
/// Each subscription's events come out in the order in which they came in, states and gaps among the data.
/// Those are never dropped; of more than a few that wait for one subscription, the middle ones are merged. A
/// subscription that has ended leaves its events, and then a State that is Closed.
///
/// A subscription enters it by Feed::subscribe, or with handlers(), or by handlers of the application that
/// call those. Feeds and queue may go in any order.
///
/// With Block, the thread that has filled the queue waits before the next message that it delivers, not
/// inside a callback, so that closing a subscription or a feed never waits for the queue's reader.
///
/// @thread any; with one thread that polls, events are handled in order
class TIVRA_API UpdateQueue {
public:
    /// What poll() calls with each event, which is valid during the call.
    using Handler = std::function<void(const QueueEvent&)>;

    /// @throws Error (InvalidArgument) for a limit of 0
    explicit UpdateQueue(QueueOptions options = {});
    /// Takes over what waits; subscriptions go on into this one. A queue that was moved from is empty, and
    /// its handlers do nothing.
    UpdateQueue(UpdateQueue&&) noexcept;
    /// The same; the queue that was here is dropped as in the destructor.
    UpdateQueue& operator=(UpdateQueue&&) noexcept;
    /// Drops what waits. Subscriptions go on, to nobody.
    ~UpdateQueue();

    /// Handlers that put everything into the queue, for one subscription or, by copies, for many.
    SubscriptionHandlers handlers() const;

    /// Calls the handler with what waits, at most so many events, on the calling thread. What the handler
    /// throws comes out of here, after the event that it was thrown for.
    /// @return how many there were
    std::size_t poll(std::size_t max, const Handler& handler);
    /// Waits for an event.
    /// @return whether one is there; false when the time has passed
    /// @throws Error (InCallback) on a thread of the library, when there is none
    bool wait(std::chrono::nanoseconds timeout) const;
    /// A descriptor that can be read as long as events wait, for epoll and the like: don't read it, poll()
    /// the queue. It belongs to the queue and goes with it.
    /// @return -1 in a child that the process has forked
    /// @throws Error (System) when the system refuses one
    int descriptor() const;

    /// How the queue is doing now: all figures are of one moment. All zero in a child that the process has
    /// forked.
    QueueStatistics statistics() const;
    /// Of the subscriptions that are open or have events that wait: symbols of which something was dropped or
    /// merged.
    std::vector<QueueCounts> counts() const;

private:
    std::shared_ptr<tivra_internal::QueueState> m_state;
};

} // namespace tivra
