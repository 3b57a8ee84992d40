#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "TivraApi.h"
#include "feed/Error.h"
#include "feed/Instrument.h"

namespace tivra_internal {
class SubscriptionState;
} // namespace tivra_internal

namespace tivra {

class SubscriptionView;
class Update;

/// What a subscription shows can be relied on so far.
enum class DataState {
    Pending,    ///< asked for, and not answered yet
    Live,       ///< image and updates are complete up to now
    Stale,      ///< the hub is lost, so the last values are old
    Recovering, ///< the hub is back, and the new image is on its way
    Refused,    ///< the hub has said no; nothing will come
    Closed      ///< given up by the application, or with its feed
};

/// A subscription has come from one state to another.
struct StateChange {
    DataState from = DataState::Pending;        ///< before
    DataState to = DataState::Pending;          ///< now
    std::string_view cause;                     ///< in words for a log; valid during the callback
    const Error* error = nullptr;               ///< for Refused, else null; valid during the callback
    std::chrono::system_clock::time_point time; ///< when it happened, by this machine's clock
};

/// A time of which a subscription has missed what was sent. It stands in the stream: it comes after the last
/// update before it, and before the image that follows it, if one does.
struct Gap {
    /// Why data was missed.
    enum class Cause : unsigned char {
        Loss,       ///< the connection to the hub was lost, or the session was rebuilt
        Withdrawal, ///< the user was not entitled to the source for a time
        /// The hub has dropped data for want of room: this reader, or the line, is too slow. No image
        /// follows, and the hub doesn't say which symbols it was.
        Overrun,
        /// The hub has merged updates for want of room. No image follows: values are up to date, and what was
        /// in between is missing.
        Conflation
    };
    Cause cause = Cause::Loss; ///< why data was missed
    /// What is missing was sent later: when the last thing before a loss was read, which may be many seconds
    /// before it was noticed, or, for a reader who is behind, when nothing more waited in the socket; when it
    /// was read that the hub had dropped so much, or began to merge; when a withdrawal was noticed. By this
    /// machine's clock. What still waited at a hub that held data up for a slow reader was sent earlier.
    std::chrono::system_clock::time_point from;
    std::chrono::system_clock::time_point to; ///< when the next data came
    std::optional<std::uint64_t> messages;    ///< how many were missed, where that can be known
    std::optional<std::uint64_t> bytes;       ///< of the hub's data in all, where that can be known
};

/// Who hears of what comes for a subscription. Each may be left out. Calls for one symbol come one at a time
/// and in order. @thread user
struct SubscriptionHandlers {
    /// Images and updates, as the hub sends them.
    std::function<void(const Update&)> onUpdate{};
    /// The subscription has come to another state. Closed is not reported: the application has closed it.
    std::function<void(const SubscriptionView&, const StateChange&)> onState{};
    /// Something was missed. It comes before the image that makes up for it, if there is one.
    std::function<void(const SubscriptionView&, const Gap&)> onGap{};
};

/// What has come for a subscription since it was made.
struct SubscriptionStatistics {
    std::uint64_t updates = 0; ///< handed to onUpdate, images included
    std::uint64_t gaps = 0;    ///< reported to onGap
    /// When the last update came, to about a millisecond; nothing before the first.
    std::optional<std::chrono::system_clock::time_point> lastUpdate;
};

/// A look at a subscription, inside its callbacks and wherever its owner isn't at hand. It costs no
/// allocation, and is valid as long as the callback or the Subscription it came from.
/// @thread any
class TIVRA_API SubscriptionView {
public:
    /// The number of the source that was subscribed.
    int source() const noexcept;
    /// What was subscribed: a symbol, or a pattern. An update has its own symbol.
    std::string_view symbol() const noexcept;
    /// The state now.
    DataState state() const noexcept;
    /// What has come up to now.
    SubscriptionStatistics statistics() const;
    /// A number that no other subscription of the process has had.
    std::uint64_t id() const noexcept;
    /// Ends the subscription: see Subscription::close.
    void close() const;

private:
    friend class tivra_internal::SubscriptionState;
    friend class Subscription;

    explicit SubscriptionView(tivra_internal::SubscriptionState& state) noexcept : m_state(&state) {}

    tivra_internal::SubscriptionState* m_state;
};

/// A standing request for a symbol, its order book, or all symbols that match a pattern, as long as the
/// object lives. Losses and failovers need nothing from the application: the subscription is repeated and
/// brings a new image after each.
/// @thread any, one at a time
class TIVRA_API Subscription {
public:
    /// No subscription, as an object that was moved from.
    Subscription() = default;
    /// Takes the subscription over; callbacks go on.
    Subscription(Subscription&&) noexcept;
    /// The same; the subscription that was here is closed.
    Subscription& operator=(Subscription&&) noexcept;
    /// Closes: see close() for whom that waits for.
    ~Subscription();

    /// Whether this is a subscription, open or closed; false for an object that was moved from.
    explicit operator bool() const noexcept { return m_state != nullptr; }

    /// The number of the source that was subscribed; 0 for an object without a subscription.
    int source() const noexcept;
    /// What was subscribed: a symbol, or a pattern.
    std::string_view symbol() const noexcept;
    /// The state now; Closed for an object without a subscription.
    DataState state() const noexcept;
    /// Why the hub has refused it; nothing in any other state.
    std::optional<Error> error() const;
    /// What has come up to now; it stays readable after close().
    SubscriptionStatistics statistics() const;
    /// A number that no other subscription of the process has had, as in SubscriptionView::id and
    /// QueueEvent::subscription; 0 for an object without a subscription.
    std::uint64_t id() const noexcept;

    /// Ends the subscription. When this returns no callback of it runs and none will come; one that runs on
    /// another thread is waited for. Inside a callback of the subscription it is the last one. Inside any
    /// other callback it waits for nobody, so a call of this one's may still be running when it returns.
    void close();

private:
    friend class tivra_internal::SubscriptionState;

    explicit Subscription(std::shared_ptr<tivra_internal::SubscriptionState> state) noexcept;

    std::shared_ptr<tivra_internal::SubscriptionState> m_state;
};

} // namespace tivra
