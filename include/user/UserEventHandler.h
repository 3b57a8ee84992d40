#pragma once

#include "TivraApi.h"

namespace tivra {

class UserEvent;

/// What an application implements to hear whether its user has been accepted.
///
/// The contract of the callback:
///  - Thread: the first user thread of the library, at most one call per second.
///  - May be called inside: UserInfo::getState, Session::getState, Session::send and the like; not
///    Session::start, Session::stop, APIFactory::destroySession or APIFactory::destroyUserInfo.
///  - May be kept: nothing; the event is destroyed when the call returns.
///  - How long: well below a millisecond; session events and statistics wait for it.
///  - An exception that leaves it ends there with a critical line in the log; the session goes on.
///
/// The library never deletes a handler; it must outlive the user that it was given to.
class TIVRA_API UserEventHandler {
public:
    /// For derived classes.
    UserEventHandler() = default;
    /// The copy is another handler, which has to be given to a user itself.
    UserEventHandler(const UserEventHandler&) = default;
    /// Changes nothing in which of them is given to a user.
    UserEventHandler& operator=(const UserEventHandler&) = default;
    /// Not while the library may still call it; see above.
    virtual ~UserEventHandler();

    /// Called when the login result of the user changes, not once per hub.
    virtual void onUserEvent(const UserEvent& event) = 0;
};

} // namespace tivra
