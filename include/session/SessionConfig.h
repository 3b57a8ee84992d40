#pragma once

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class SessionConfigImpl;
} // namespace tivra_internal

namespace tivra {

/// The settings that concern a session as a whole, obtained with Session::getSessionConfig.
///
/// They are read by Session::start, so set them before it. No setter fails: a value out of range is corrected
/// and logged at the warning level, a parameter of the other type is logged and changes nothing. Setters
/// return the object itself, so that calls chain.
///
/// @thread application; lives as long as its session.
class TIVRA_API SessionConfig {
public:
    /// The parameters. The end of a name tells the type that `set` must be called with.
    enum Parameters : int {
        /// Deprecated; setting it only logs a warning.
        RECOVERY_BOOL = 0,
        /// true: hubs and callbacks are spread over several threads. Default false: one thread for all hubs,
        /// one for all callbacks.
        MULTITHREADED_API_CONNECTIONS_BOOL = 1,
        /// Most threads for callbacks when multithreaded. 0 or above; default 0, no limit: one per hub.
        MAX_USER_THREADS_LONG = 2,
        /// Most threads for hub connections when multithreaded. 0 or above; default 0, no limit: one per hub.
        MAX_HUB_THREADS_LONG = 3,
        /// How many requests may wait to be sent. 100000 to 50000000; default 100000.
        MAX_REQUEST_QUEUE_SIZE_LONG = 4,
        /// true: standing requests are remembered and sent again after a loss or a restart. Setting it to
        /// true raises MAX_REQUEST_QUEUE_SIZE_LONG to 10000000 unless that was set before. Default false.
        WATCHLIST_BOOL = 5,
        /// How many standing requests are remembered. 1 or above; default 10000000.
        MAX_WATCHLIST_SIZE_LONG = 6,
        /// How full a receive queue must be, in percent, for an alarm event. 1 to 101, where 101 means never;
        /// default 70.
        QUEUE_DEPTH_THRESHOLD_PERCENT_LONG = 7,
        /// true: a request whose hub is lost before the answer ends with a message of its tag, an
        /// IMAGE_COMPLETE for a query and a STATUS for any other, with the status -997 "Connection lost
        /// before the answer". It comes after the loss event. With WATCHLIST_BOOL only what isn't repeated
        /// ends so, an unsubscribe for example. Default false: such a request just has no end.
        END_LOST_REQUESTS_BOOL = 8,
        /// true: messages are decoded, and the message callback is called, on the hub's own thread right
        /// after the read, which saves the hand-over to a user thread. A slow callback then holds up the
        /// reading of all hubs of its thread: what takes longer than a millisecond for one read goes on on a
        /// user thread. So calls come from several threads, as with MULTITHREADED_API_CONNECTIONS_BOOL: those
        /// for one hub one at a time and in order, those for different hubs and those of the other handlers
        /// at the same time. Default false.
        INLINE_CALLBACKS_BOOL = 9,
        /// true: the numbers of a message are checked when it comes and decoded when MessageReader is asked
        /// for them, anew each time. That saves a quarter of the parser's time where callbacks read none.
        /// Each number that they read costs some of it, so with about three or more per message it is better
        /// left off. Values, refused messages and log lines are the same either way. Default false.
        LAZY_VALUES_BOOL = 10,
        /// true: over a compressed connection reading waits whenever the receive queue is nearly full, for as
        /// long as your callbacks have something to take out of it. Nothing is lost then and the connection
        /// stays up: what you don't take waits in the socket and at the hub, which may merge it or give you
        /// up. Default false: a full queue of a compressed connection costs the connection. A tivra::Feed has
        /// it on, and its plain connections wait too.
        HOLD_READS_BOOL = 11,
        /// true: tivra::Update::receivedAt, and the times from the socket in tivra::FeedStatistics, count
        /// from when the kernel got the last packet of what a read took, so that waiting in the socket shows.
        /// It costs some 100 ns a read. Bytes that the kernel has no time for (the first ones in a while),
        /// and
        /// compressed connections, count from the end of the read as ever. Default false.
        KERNEL_TIMESTAMPS_BOOL = 12
    };

    SessionConfig(const SessionConfig&) = delete;
    SessionConfig& operator=(const SessionConfig&) = delete;

    /// Sets a parameter whose name ends in _LONG.
    SessionConfig& set(Parameters parameter, long value);
    /// The same for a value written as a plain int, which would otherwise fit `long` and `bool` alike.
    SessionConfig& set(Parameters parameter, int value) { return set(parameter, static_cast<long>(value)); }
    /// Sets a parameter whose name ends in _BOOL.
    SessionConfig& set(Parameters parameter, bool value);
    /// Keeps a pointer (a text, say) from passing as a bool.
    SessionConfig& set(Parameters parameter, const void* value) = delete;

private:
    friend class tivra_internal::HandleAccess;

    explicit SessionConfig(tivra_internal::SessionConfigImpl* impl) noexcept;
    ~SessionConfig();

    tivra_internal::SessionConfigImpl* sessionConfigImpl;
};

} // namespace tivra
