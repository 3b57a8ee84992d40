#include <user/UserInfo.h>

#include "config/UserInfoImpl.h"

namespace tivra {

UserInfo::UserInfo(const std::string& userName, const std::string& password, UserEventHandler& userHandler)
    : userInfoImpl(new tivra_internal::UserInfoImpl(userName, password, userHandler, *this)) {}

UserInfo::UserInfo(const std::string& userName, PasswordHandler& passwords, UserEventHandler& userHandler)
    : userInfoImpl(new tivra_internal::UserInfoImpl(userName, passwords, userHandler, *this)) {}

UserInfo::~UserInfo() {
    if (!userInfoImpl->process().isForeign())
        delete userInfoImpl;
}

UserInfo::States UserInfo::getState() const {
    return userInfoImpl->process().refuses("UserInfo::getState") ? NOT_AUTHENTICATED
                                                                 : userInfoImpl->getState();
}

} // namespace tivra
