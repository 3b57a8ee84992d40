#pragma once

namespace tivra_internal {

class UserEventReactor;

/// What a UserThread does for its session. @thread user
class UserThreadWork {
public:
    /// What its loop may be asked for; all but the first is the first user thread's.
    enum Ask : unsigned {
        kEndLostRequests = 1U << 0U,
        kCheckSession = 1U << 1U,     ///< a hub has changed, or an event of the session waits
        kDeliverUserEvent = 1U << 2U, ///< an event of the user waits
        kCheckDepth = 1U << 3U        ///< a queue holds something
    };
    /// Requests whose answer was lost with a connection.
    enum class Lost {
        NoMore,
        MoreLater, ///< some have yet to be reported, or come after what their queue holds
        MoreNow
    };

    virtual ~UserThreadWork() = default;

    /// Takes the counters of the last 100 ms over. True when something has gone out.
    virtual bool calc_user_stats(double now, UserEventReactor& reactor) = 0;
    [[nodiscard]] virtual Lost endLostRequests(UserEventReactor& reactor) = 0;

    // --- @thread first user ---
    /// The session check. True when it has to be made again in 100 ms, whatever happens.
    [[nodiscard]] virtual bool check_session_events() = 0;
    /// One event, if there is one.
    virtual void check_user_events() = 0;
    virtual void check_statistics_events(double now) = 0;
    /// True while a queue holds something, or is said to.
    [[nodiscard]] virtual bool check_queueDepth_events() = 0;
    /// The loop has ended: what has been raised still reaches the application.
    virtual void deliverLastEvents() = 0;
};

} // namespace tivra_internal
