#pragma once

#include <cstdint>
#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class SessionImpl;
} // namespace tivra_internal

namespace tivra {

class ConnectionConfig;
class MessageEventHandler;
class Request;
class SessionConfig;
class SessionEventHandler;
class StatisticsEventHandler;
class UserInfo;

/// A session with the feed: all connections to its hubs, the threads that serve them, and the requests that
/// run over them.
///
/// Made by APIFactory::createSession and destroyed by APIFactory::destroySession; every reference that it
/// hands out ends with it at the latest.
///
/// @thread application, unless an operation says "any".
class TIVRA_API Session {
public:
    /// What a session can do at the moment. The values equal those of the first three SessionEvent::Types.
    enum States : int {
        TIVRA_SESSION_UNAVAILABLE = 0, ///< no hub is ready, or the session is still coming up
        TIVRA_SESSION_ESTABLISHED = 1, ///< all hubs are ready
        TIVRA_SESSION_RECOVERY = 2     ///< some hubs are lost and being dialled, others serve data
    };

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// The state now. @thread any, also inside a callback.
    States getState() const;

    /// The settings of the session as a whole; the same object at each call. Set them before start().
    SessionConfig& getSessionConfig();

    /// The settings of all connections, and the door to the hosts; the same object at each call. Set them
    /// before start().
    ConnectionConfig& getConnectionConfig();

    /// The user that the session was made with. @thread any.
    UserInfo& getUserInfo();

    /// As start(std::string&), without the reason.
    [[nodiscard]] bool start();

    /// Starts the session: makes its threads, connects and logs in at the configured hosts. Blocks until the
    /// session has been established for the first time or start-up was given up; stop() from another thread
    /// ends the wait. A stopped session can be started again. On a running session it changes nothing and
    /// returns true.
    ///
    /// One hub that fails is enough for start-up to be given up, although the others would serve: every
    /// primary host, and every further hub that these name, must be reached, accept the user and answer. A
    /// hub has failed when more than HostConfig::CONNECTION_RETRY_LIMIT_LONG dials led to nothing, when it
    /// refuses the user, when it is silent for HostConfig::READ_TIMEOUT_LONG during the login
    /// conversation, and when that isn't done within twelve times as long (at least 60 s). The remedy is
    /// backup hosts (HostConfig::BACKUP_BOOL), one for each primary host: the first failure, here even of a
    /// single dial, then moves the whole start to the backup side, once, where the next failure ends it. A
    /// hub that is lost after start() has returned true doesn't end the session.
    ///
    /// @param[out] failReason  "Session started", or why it could not be started.
    /// @return false when no host is configured as primary, no message handler is registered, another session
    ///         exists in the process, start-up was given up as said above or because two hosts turned out to
    ///         be one hub or a thread could not be made, stop() ended the wait, or the call was made on a
    ///         thread of the library.
    [[nodiscard]] bool start(std::string& failReason);

    /// Stops the session and blocks until every thread of it has ended. Requests in flight are dropped;
    /// with SessionConfig::WATCHLIST_BOOL on standing requests are sent again after the next start(). On a
    /// session that doesn't run it does nothing. On a thread of the library (inside a callback, that is) it
    /// logs at the critical level and does nothing.
    /// @return always true.
    bool stop();

    /// Makes an empty request of this session.
    /// @return valid until freeRequest(); it may be sent any number of times.
    Request& createRequest();

    /// Gives a request back, also while the engine still works on what was sent with it. An object that the
    /// library doesn't know (freed twice, for example) is logged at the warning level and left alone.
    void freeRequest(Request& request);

    /// Queues what the request says at this moment. The outcome comes as messages with the returned tag. The
    /// call doesn't block on the network and doesn't change the text of the request.
    ///
    /// @thread any, also inside a callback; a single Request object must not be used by two threads at once.
    /// @return the tag, 18 or above; 0 when the request was refused: the request queue or the watchlist is
    ///         full, its text is too long, the session that made it is gone, or this session was made while
    ///         another one existed. The log tells which.
    int64_t send(Request& request);

    /// Registers the receiver of messages. Mandatory before start(). Null is accepted: messages are dropped
    /// then.
    /// @param messageEventHandler  stays the application's; must outlive the session or be replaced.
    void registerMessageEventHandler(MessageEventHandler* messageEventHandler);

    /// Registers the receiver of statistics, or none with null.
    /// @param statisticsEventHandler  stays the application's; must outlive the session or be replaced.
    /// @param interval  seconds between two events; 30 until this call is made. 0 or below means each second.
    void registerStatisticsEventHandler(StatisticsEventHandler* statisticsEventHandler, int interval);

private:
    friend class tivra_internal::HandleAccess;

    Session(UserInfo& userInfo, SessionEventHandler& sessionHandler, bool isValid);
    ~Session();

    tivra_internal::SessionImpl* sessionImpl;
};

} // namespace tivra
