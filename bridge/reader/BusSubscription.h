#pragma once

#include "reader/BusGap.h"
#include "reader/BusUpdate.h"

#include <feed/Instrument.h>
#include <feed/Subscription.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tivra_bus {
class SubscriptionState;
} // namespace tivra_bus

namespace tivra {

/// Who hears of what comes for a subscription. Each may be left out. Calls of one reader come one at a time,
/// those of a symbol in order. @thread reader
struct BusHandlers {
    /// The last values as an image, and then updates.
    std::function<void(const BusUpdate&)> onUpdate{};
    /// A symbol has come to another state. StateChange::error is null. Closed is reported when the bridge has
    /// ended its own subscription.
    std::function<void(const Instrument&, const StateChange&)> onState{};
    /// Something was missed. It comes before what makes up for it.
    std::function<void(const Instrument&, const BusGap&)> onGap{};
};

/// What has come for a subscription.
struct BusSubscriptionStatistics {
    std::size_t symbols = 0;        ///< that are subscribed
    std::size_t live = 0;           ///< of those in DataState::Live
    std::uint64_t updates = 0;      ///< handed to onUpdate, images included
    std::uint64_t gaps = 0;         ///< reported to onGap
    std::uint64_t missing = 0;      ///< updates that those gaps count
    std::uint64_t withoutField = 0; ///< updates that have none of the fields that were asked for
};

/// Symbols that are read from the bus with the same handlers, as long as the object lives.
/// @thread any
class BusSubscription {
public:
    /// No subscription.
    BusSubscription() = default;
    /// Takes the subscription over; callbacks go on.
    BusSubscription(BusSubscription&&) noexcept;
    /// The same; the subscription that was here is closed.
    BusSubscription& operator=(BusSubscription&&) noexcept;
    /// Closes.
    ~BusSubscription();

    /// How far what comes for a symbol can be relied on; nothing for one that isn't subscribed here. Closed
    /// after the end.
    std::optional<DataState> state(const Instrument& instrument) const;
    /// What has come up to now; it stays readable after close().
    BusSubscriptionStatistics statistics() const;

    /// Ends the subscription. When this returns no callback of it runs and none will come; one that runs on
    /// the reader's thread is waited for. Inside a callback of a reader it waits for nobody.
    void close();

private:
    friend class BusReader;

    explicit BusSubscription(std::shared_ptr<tivra_bus::SubscriptionState> state) noexcept;

    std::shared_ptr<tivra_bus::SubscriptionState> m_state;
};

} // namespace tivra
