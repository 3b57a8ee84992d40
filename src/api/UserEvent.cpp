#include <event/UserEvent.h>

#include "config/UserEventImpl.h"

namespace tivra {

UserEvent::UserEvent(tivra_internal::UserEventImpl* impl) noexcept : userEventImpl(impl) {}

UserEvent::~UserEvent() {
    delete userEventImpl;
}

UserEvent::Types UserEvent::getType() const {
    return userEventImpl->getType();
}

UserInfo& UserEvent::getUserInfo() const {
    return userEventImpl->getUserInfo();
}

Session& UserEvent::getSession() const {
    return userEventImpl->getSession();
}

int UserEvent::getRetCode() const {
    return userEventImpl->getRetCode();
}

std::string UserEvent::getRetCodeString() const {
    return userEventImpl->getRetCodeString();
}

} // namespace tivra
