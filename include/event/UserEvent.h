#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class UserEventImpl;
} // namespace tivra_internal

namespace tivra {

class Session;
class UserInfo;

/// A change of a user's login result, handed to UserEventHandler::onUserEvent and valid during that call
/// only.
///
/// @thread user
class TIVRA_API UserEvent {
public:
    /// The kinds of event.
    enum Types : int {
        AUTHORIZATION_FAILURE = 0, ///< a hub has refused the user; getRetCode() tells why
        AUTHORIZATION_SUCCESS = 1  ///< all hubs known so far have accepted the user
    };

    UserEvent(const UserEvent&) = delete;
    UserEvent& operator=(const UserEvent&) = delete;

    /// The kind of this event.
    Types getType() const;
    /// The user that was accepted or refused.
    UserInfo& getUserInfo() const;
    /// The session that logged in.
    Session& getSession() const;
    /// The hub's code; 0 means success, -5 for example a wrong name or password.
    int getRetCode() const;
    /// The name of that code, for example "ERR.AUTH.LOGIN"; "Unknown code" for one that nobody has named.
    std::string getRetCodeString() const;

private:
    friend class tivra_internal::HandleAccess;

    explicit UserEvent(tivra_internal::UserEventImpl* impl) noexcept;
    ~UserEvent();

    tivra_internal::UserEventImpl* userEventImpl;
};

} // namespace tivra
