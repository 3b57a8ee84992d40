#include "config/UserInfoImpl.h"

#include <algorithm>
#include <utility>

#include <tp/callOut.h>
#include <tp/eprintf.h>
#include <user/UserEventHandler.h>

#include "config/UserEventImpl.h"
#include "config/UserHub.h"
#include "config/ValueFault.h"

namespace tivra_internal {

namespace {

bool canBeSent(const char* what, const std::string& text) {
    const char* const fault = valueFault(text);
    if (fault != nullptr)
        eprintf(EPF_WARN, "Invalid %s passed to APIFactory::createUserInfo: %s", what, fault);
    return fault == nullptr;
}

} // namespace

using tivra::UserEvent;
using tivra::UserInfo;

UserInfoImpl::UserInfoImpl(std::string name, tivra::Password word, tivra::UserEventHandler& handler,
                           UserInfo& handle)
    : userName(std::move(name))
    , m_passwords(std::move(word))
    , m_isUsable(canBeSent("user name", userName) && canBeSent("password", m_passwords.kept()->text()))
    , userHandler(handler)
    , userInfo(handle) {}

UserInfoImpl::UserInfoImpl(std::string name, tivra::PasswordHandler& passwords,
                           tivra::UserEventHandler& handler, UserInfo& handle)
    : userName(std::move(name))
    , m_passwords(passwords)
    , m_isUsable(canBeSent("user name", userName))
    , userHandler(handler)
    , userInfo(handle) {}

UserInfoImpl::~UserInfoImpl() = default;

void UserInfoImpl::newHub(const UserHub* hub) {
    const bool isDummy = hub->isDummy();
    const tp::MutexLock lock(m_hubAuthStateMap_mutex);
    std::unique_ptr<AuthState>& entry = hubAuthStateMap[hub];
    if (entry == nullptr) {
        entry = std::make_unique<AuthState>();
        entry->isDummy = isDummy;
    }
}

void UserInfoImpl::deleteHub(const UserHub* hub) {
    const tp::MutexLock lock(m_hubAuthStateMap_mutex);
    hubAuthStateMap.erase(hub);
    updateState();
}

void UserInfoImpl::resetHub(const UserHub* hub) {
    eprintf(EPF_DBUG, "UserInfoImpl::resetHub(ENTRY): HUB=%p", static_cast<const void*>(hub));
    // Asked first: the answer takes a mutex of the connection, which ranks before ours.
    const bool isBeingDropped = hub->isInitialHubDisconnected();
    const tp::MutexLock lock(m_hubAuthStateMap_mutex);
    const auto it = hubAuthStateMap.find(hub);
    if (it == hubAuthStateMap.end()) {
        eprintf(EPF_WARN, "UserInfoImpl::resetHub: entry for HUB %p missing; ignoring reset",
                static_cast<const void*>(hub));
        return;
    }
    if (!isBeingDropped) {
        it->second->currUserState = UserInfo::NOT_AUTHENTICATED;
        it->second->loginEventType = -1;
    }
    updateState();
}

void UserInfoImpl::updateState() {
    std::size_t accepted = 0;
    std::size_t others = 0;
    for (const auto& [hub, entry] : hubAuthStateMap) {
        if (!entry->isDummy)
            ++(entry->currUserState == UserInfo::AUTHENTICATED ? accepted : others);
    }
    if (accepted == 0)
        userState = UserInfo::NOT_AUTHENTICATED;
    else
        userState = others == 0 ? UserInfo::AUTHENTICATED : UserInfo::PARTIALLY_AUTHENTICATED;
}

UserInfoImpl::Standing UserInfoImpl::storeLoginResult(const UserHub* hub, UserEvent::Types type, int rc) {
    const bool isDummy = hub->isDummy();
    const tp::MutexLock lock(m_hubAuthStateMap_mutex);
    std::unique_ptr<AuthState>& entry = hubAuthStateMap[hub];
    if (entry == nullptr) {
        eprintf(EPF_WARN, "UserInfoImpl::loginResult: entry for HUB %p missing; creating new one",
                static_cast<const void*>(hub));
        entry = std::make_unique<AuthState>();
        entry->isDummy = isDummy;
    }
    const bool isAccepted = type == UserEvent::AUTHORIZATION_SUCCESS;
    const bool isRepeated = !isAccepted && entry->lastRefusal == rc;
    entry->loginEventType = static_cast<short>(type);
    entry->lastRefusal = isAccepted ? std::nullopt : std::optional<int>(rc);
    entry->currUserState = isAccepted ? UserInfo::AUTHENTICATED : UserInfo::NOT_AUTHENTICATED;
    updateState();
    return {userState, isRepeated};
}

void UserInfoImpl::loginResult(const UserHub* hub, UserEvent::Types type, int rc, tivra::Session& session,
                               const RetCodeTexts& texts) {
    const Standing standing = storeLoginResult(hub, type, rc);
    const bool isAccepted = type == UserEvent::AUTHORIZATION_SUCCESS;
    const tp::MutexLock lock(m_user_mutex);
    // Of refusals the first is told and each other code, be it of this hub or of another.
    if (lastLoginEventType == static_cast<short>(type) &&
        (isAccepted || standing.isRepeated || rc == m_lastEventCode))
        return;
    // Success is told when all hubs have accepted.
    if (isAccepted && standing.state == UserInfo::PARTIALLY_AUTHENTICATED)
        return;
    lastLoginEventType = static_cast<short>(type);
    m_lastEventCode = rc;
    eventQueue.push_back(
        HandleAccess::make<UserEvent>(std::make_unique<UserEventImpl>(type, &userInfo, session, texts, rc)));
}

void UserInfoImpl::handleEvents() {
    HandlePtr<UserEvent> event;
    {
        const tp::MutexLock lock(m_user_mutex);
        if (eventQueue.empty())
            return;
        event = std::move(eventQueue.front());
        eventQueue.pop_front();
    }
    tp::callOut("onUserEvent", [&] { userHandler.onUserEvent(*event); });
    const UserEvent::Types type = HandleAccess::impl(*event).getType();
    event.reset();
    eprintf(EPF_INFO, "UserEvent: %s for user %s",
            type == UserEvent::AUTHORIZATION_SUCCESS ? "AUTHORIZATION_SUCCESS" : "AUTHORIZATION_FAILURE",
            userName.c_str());
}

bool UserInfoImpl::eventQueueEmpty() const {
    const tp::MutexLock lock(m_user_mutex);
    return eventQueue.empty();
}

void UserInfoImpl::discardEvents(const tivra::Session& session) {
    if (process().isForeign())
        return;
    const tp::MutexLock lock(m_user_mutex);
    eventQueue.erase(std::remove_if(eventQueue.begin(), eventQueue.end(),
                                    [&session](const HandlePtr<UserEvent>& event) {
                                        return &HandleAccess::impl(*event).getSession() == &session;
                                    }),
                     eventQueue.end());
}

} // namespace tivra_internal
