#pragma once

#include <string>

#include <event/UserEvent.h>

namespace tivra {
class Session;
class UserInfo;
} // namespace tivra

namespace tivra_internal {

class RetCodeTexts;

/// One change of a user's login result. Made on a hub thread, read on the first user thread; borrows
/// everything that it refers to.
class UserEventImpl {
public:
    UserEventImpl(tivra::UserEvent::Types type, tivra::UserInfo* userInfo, tivra::Session& session,
                  const RetCodeTexts& texts, int rc);

    [[nodiscard]] tivra::UserEvent::Types getType() const { return type; }
    [[nodiscard]] tivra::UserInfo& getUserInfo() const { return *userInfo; }
    [[nodiscard]] tivra::Session& getSession() const { return session; }
    [[nodiscard]] int getRetCode() const { return rc; }
    [[nodiscard]] std::string getRetCodeString() const;

private:
    const tivra::UserEvent::Types type;
    tivra::UserInfo* const userInfo;
    tivra::Session& session;
    const RetCodeTexts& m_retCodeTexts;
    const int rc;
};

} // namespace tivra_internal
