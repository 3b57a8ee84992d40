#pragma once

#include "TivraApi.h"

namespace tivra {

class SessionEvent;

/// What an application implements to hear of its session's state and sources.
///
/// The contract of the callback:
///  - Thread: the first user thread of the library, one call at a time.
///  - May be called inside: Session::getState, Session::send, Session::createRequest and the like.
///  - Must not be called inside: Session::start, Session::stop, APIFactory::destroySession and
///    APIFactory::destroyUserInfo; they are refused there with a critical log line.
///  - May be kept: nothing. The event is destroyed when the call returns; copy what is needed.
///  - How long: well below a millisecond. The session check, the statistics, and the data of the hubs on this
///    thread wait for it.
///  - An exception that leaves it ends there with a critical line in the log; the session goes on.
///
/// The library never deletes a handler; it must outlive the session that it was given to.
class TIVRA_API SessionEventHandler {
public:
    /// For derived classes.
    SessionEventHandler() = default;
    /// The copy is another handler, which has to be given to a session itself.
    SessionEventHandler(const SessionEventHandler&) = default;
    /// Changes nothing in which of them is given to a session.
    SessionEventHandler& operator=(const SessionEventHandler&) = default;
    /// Not while the library may still call it; see above.
    virtual ~SessionEventHandler();

    /// Called once per event, in the order in which the events came up.
    virtual void onSessionEvent(const SessionEvent& event) = 0;
};

} // namespace tivra
