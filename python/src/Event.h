#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <feed/Error.h>
#include <feed/Record.h>
#include <feed/Subscription.h>
#include <feed/Update.h>
#include <feed/UpdateQueue.h>

namespace tivra_python {

/// A change of state that is kept.
struct KeptState {
    tivra::DataState from = tivra::DataState::Pending;
    tivra::DataState to = tivra::DataState::Pending;
    std::string cause;
    std::optional<tivra::Error> error;
    std::chrono::system_clock::time_point time;
};

/// A gap that is kept.
struct KeptGap {
    const char* cause = ""; ///< its name, which stays
    std::chrono::system_clock::time_point from;
    std::chrono::system_clock::time_point to;
    std::optional<std::uint64_t> messages;
    std::optional<std::uint64_t> bytes;
};

/// What has come for a subscription, for Python: an update, a change of state or a gap.
struct Event {
    using Kind = tivra::QueueEvent::Kind;

    Kind kind = Kind::Update;
    std::uint64_t subscription = 0; ///< that it is for; 0 where nobody asks
    int source = 0;
    std::string symbol;
    std::int64_t received = 0; ///< nanoseconds since 1970 in UTC
    tivra::Record record;
    std::optional<KeptState> state;
    std::optional<KeptGap> gap;
    std::uint64_t dropped = 0;
    std::uint64_t merged = 0;

    [[nodiscard]] static Kind kindOf(tivra::Update::Kind kind) noexcept;
    [[nodiscard]] static Event ofQueue(const tivra::QueueEvent& event);
    [[nodiscard]] static Event ofUpdate(const tivra::Update& update);
    [[nodiscard]] static Event ofState(const tivra::SubscriptionView& subscription,
                                       const tivra::StateChange& change);
    [[nodiscard]] static Event ofGap(const tivra::SubscriptionView& subscription, const tivra::Gap& gap);
};

} // namespace tivra_python
