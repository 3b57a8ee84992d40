#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class UserInfoImpl;
} // namespace tivra_internal

namespace tivra {

class PasswordHandler;
class UserEventHandler;

/// An application's identity: a user name, a password or where to ask for it, and what the hubs said of them.
///
/// Made by APIFactory::createUserInfo, destroyed by APIFactory::destroyUserInfo after every session that was
/// made with it.
class TIVRA_API UserInfo {
public:
    /// What the hubs of a session, taken together, think of the user.
    enum States : int {
        NOT_AUTHENTICATED = 0,      ///< no hub has accepted the user
        AUTHENTICATED = 1,          ///< all hubs have accepted the user
        PARTIALLY_AUTHENTICATED = 2 ///< some have, some haven't
    };

    UserInfo(const UserInfo&) = delete;
    UserInfo& operator=(const UserInfo&) = delete;

    /// The state now. @thread any, also inside a callback.
    States getState() const;

private:
    friend class tivra_internal::HandleAccess;

    UserInfo(const std::string& userName, const std::string& password, UserEventHandler& userHandler);
    UserInfo(const std::string& userName, PasswordHandler& passwords, UserEventHandler& userHandler);
    ~UserInfo();

    tivra_internal::UserInfoImpl* userInfoImpl;
};

} // namespace tivra
