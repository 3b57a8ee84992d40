#pragma once

#include <string>

#include "TivraApi.h"
#include "feed/Password.h"

namespace tivra {

/// What an application implements to be asked for the password at each login, instead of handing one over
/// that stays in memory: for passwords that change, or that a vault gives out.
///
/// The contract of the callback:
///  - Thread: one of the user's own, "tivra-login"; one call at a time. The connections of other hubs go on
///    meanwhile; logins wait for their turn.
///  - When: a connection to a hub is up and is to log in; or a connection manager is to be asked for a hub.
///  - How long: as long as it takes. The connection waits without a time-out of the library's, though the hub
///    may close it, and a start goes on counting its own time. Session::stop doesn't wait for a call that
///    runs, APIFactory::destroyUserInfo does.
///  - When it throws, or returns a password that is empty or can't go to a hub: nothing is sent, the
///    connection is closed, and the hub is dialled again as after a refused login, after 1, 2, 4 ... 30
///    seconds. A start fails, and says why. The text of the exception is logged.
///  - May be called inside: Session::getState and the like; not Session::start, Session::stop,
///    APIFactory::destroySession or APIFactory::destroyUserInfo.
///
/// What it returns is overwritten once the login is on its way. The library never deletes a handler; it must
/// outlive the user that it was given to.
class TIVRA_API PasswordHandler {
public:
    /// For derived classes.
    PasswordHandler() = default;
    /// The copy is another handler, which has to be given to a user itself.
    PasswordHandler(const PasswordHandler&) = default;
    /// Changes nothing in which of them is given to a user.
    PasswordHandler& operator=(const PasswordHandler&) = default;
    /// Not while the library may still call it; see above.
    virtual ~PasswordHandler();

    /// @param hub  who is to get it, as "host:port"
    virtual Password onPassword(const std::string& hub) = 0;
};

} // namespace tivra
