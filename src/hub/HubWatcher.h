#pragma once

#include <optional>
#include <string>

namespace tivra_internal {

/// How far the connection to a hub is.
enum class HubStage {
    Left,      ///< the session has nothing to do with it, yet or any more
    Resolving, ///< a connection manager is asked for a hub
    Connecting,
    LoggingIn,
    Downloading, ///< the hub has accepted the user, and its tables are on their way
    Ready,
    Lost,   ///< there is no connection, because it has ended or couldn't be made
    Refused ///< the same, because the hub has said no or is of no use
};

/// A hub has come to a stage.
struct HubReport {
    std::string hub; ///< its address and port
    HubStage stage = HubStage::Connecting;
    std::string cause;
    int systemError = 0; ///< errno, where the system knows why
    int status = 0;      ///< of the login, where that was refused
    /// When it is dialled next, by the monotonic clock; nothing where that isn't planned.
    std::optional<double> nextDial;
};

/// Who hears of the hubs of a session, each on its own thread: a call must be quick. @thread hub
class HubWatcher {
public:
    virtual ~HubWatcher() = default;

    virtual void hubChanged(const HubReport& report) = 0;
};

} // namespace tivra_internal
