#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class SessionEventImpl;
} // namespace tivra_internal

namespace tivra {

class Session;

/// Something that happened to a session, handed to SessionEventHandler::onSessionEvent and valid during that
/// call only.
///
/// @thread user
class TIVRA_API SessionEvent {
public:
    /// The kinds of event. The first three are the new Session::States.
    enum Types : int {
        /// No hub is ready.
        TIVRA_SESSION_UNAVAILABLE = 0,
        /// All hubs are ready.
        TIVRA_SESSION_ESTABLISHED = 1,
        /// Some hubs are lost and being dialled.
        TIVRA_SESSION_RECOVERY = 2,
        /// A hub's dictionary has been loaded; getDicVersion() tells which.
        TIVRA_DIC_LOADED = 3,
        /// On the way up from unavailable: the source of getSourceID() can be asked for. Once per entitled
        /// source, ahead of TIVRA_SESSION_ESTABLISHED.
        TIVRA_SESSION_AVAILABLE_ALLSOURCES = 4,
        /// The source of getSourceID() is back after its hub was lost.
        TIVRA_SESSION_AVAILABLE_SOURCES = 5,
        /// The source of getSourceID() is lost with its hub.
        TIVRA_SESSION_RECOVERY_SOURCES = 6,
        /// The fullest receive queue has reached the threshold; getQueueDepth() in percent.
        TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD = 7,
        /// The fullest receive queue has fallen below the threshold; getQueueDepth() in percent.
        TIVRA_SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD = 8,
        /// At least one hub has begun to conflate because the receive queue fills.
        TIVRA_SESSION_JIT_START_CONFLATING = 9,
        /// No hub conflates for that reason any more.
        TIVRA_SESSION_JIT_STOP_CONFLATING = 10,
        /// The user has gained the source of getSourceID().
        TIVRA_SESSION_SOURCE_ADDED = 11,
        /// The user has lost the source of getSourceID().
        TIVRA_SESSION_SOURCE_REMOVED = 12
    };

    SessionEvent(const SessionEvent&) = delete;
    SessionEvent& operator=(const SessionEvent&) = delete;

    /// The kind of this event.
    Types getType() const;
    /// The session it happened to.
    Session& getSession() const;
    /// The dictionary's version for TIVRA_DIC_LOADED, else empty.
    std::string getDicVersion() const;
    /// The source for the events about one, else 0.
    int getSourceID() const;
    /// Percent for the two events about the receive queue, else 0.
    int getQueueDepth() const;

private:
    friend class tivra_internal::HandleAccess;

    explicit SessionEvent(tivra_internal::SessionEventImpl* impl) noexcept;
    ~SessionEvent();

    tivra_internal::SessionEventImpl* sessionEventImpl;
};

} // namespace tivra
