#include "config/UserEventImpl.h"

#include "config/RetCodeTexts.h"

namespace tivra_internal {

UserEventImpl::UserEventImpl(tivra::UserEvent::Types eventType, tivra::UserInfo* user,
                             tivra::Session& eventSession, const RetCodeTexts& texts, int code)
    : type(eventType), userInfo(user), session(eventSession), m_retCodeTexts(texts), rc(code) {}

std::string UserEventImpl::getRetCodeString() const {
    return m_retCodeTexts.getRetCodeDesc(rc);
}

} // namespace tivra_internal
