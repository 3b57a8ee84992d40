#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tivra {

/// What a feed can do at the moment.
enum class FeedState {
    Connecting,  ///< no hub is ready: the feed is coming up, or all hubs are lost and being dialled
    Recovering,  ///< some hubs are lost and being dialled, others serve data
    Established, ///< all hubs serve data
    Closed       ///< the application has closed the feed; nothing will come of it
};

/// The feed has come from one state to another.
struct FeedStateChange {
    FeedState from = FeedState::Connecting; ///< before
    FeedState to = FeedState::Connecting;   ///< now; never Closed, which only the application brings about
    std::string cause;                      ///< in words for a log, such as "all hubs are lost"
    std::chrono::system_clock::time_point time; ///< when it happened, by this machine's clock
};

/// How far the connection to one hub is.
enum class HubState {
    Idle,        ///< it isn't dialled: its turn hasn't come, or the feed has gone on to other hubs
    Resolving,   ///< a connection manager is asked for a hub
    Connecting,  ///< TCP
    LoggingIn,   ///< the hub is asked to accept the user
    Downloading, ///< the hub has accepted the user, and its fields and sources are on their way
    Ready,       ///< it serves data
    Lost,        ///< the connection has ended or couldn't be made; the hub is dialled again
    Refused      ///< the hub has refused the user, or is of no use; it is dialled again, after longer pauses
};

/// The connection to a hub has come from one state to another.
struct ConnectionEvent {
    std::string hub;                ///< "host:port"
    HubState from = HubState::Idle; ///< before
    HubState to = HubState::Idle;   ///< now
    std::string cause;              ///< for Lost and Refused, else empty
    int systemError = 0;            ///< errno, where the system knows why
    int status = 0;                 ///< the hub's code, where it has refused the login
    std::string statusName;         ///< the name of that code
    /// For Lost and Refused: when the hub is dialled next, if nothing else ends the pause.
    std::optional<std::chrono::system_clock::time_point> nextAttemptAt;
    std::chrono::system_clock::time_point time; ///< when it happened, by this machine's clock
};

/// How the connection to a hub stands: its last event, or Idle without one.
using HubStatus = ConnectionEvent;

} // namespace tivra
