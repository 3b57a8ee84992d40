#pragma once

#include <chrono>
#include <string>

namespace tivra {

/// What a feed can do at the moment.
enum class FeedState {
    Connecting, ///< no hub is ready: the feed is coming up, or all hubs are lost and being dialled
    Recovering, ///< some hubs are lost and being dialled, others serve data
    Established,
    Closed
};

/// The feed has come from one state to another.
struct ConnectionEvent {
    FeedState from = FeedState::Connecting;
    FeedState to = FeedState::Connecting;
    std::string cause;
    std::chrono::system_clock::time_point time;
};

} // namespace tivra
