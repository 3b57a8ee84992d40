#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <event/UserEvent.h>
#include <tp/Mutex.h>
#include <tp/Process.h>
#include <user/UserInfo.h>

#include "LockOrder.h"
#include "config/HandleAccess.h"
#include "config/PasswordSource.h"

namespace tivra {
class Session;
class PasswordHandler;
class UserEventHandler;
} // namespace tivra

namespace tivra_internal {

class RetCodeTexts;
class UserHub;

/// What one hub thinks of the user.
struct AuthState {
    std::atomic<tivra::UserInfo::States> currUserState{tivra::UserInfo::NOT_AUTHENTICATED};
    /// The last login result as a UserEvent::Types, -1 for none.
    short loginEventType = -1;
    /// The code of the last refusal since this hub has accepted the user; it outlives the connection.
    std::optional<int> lastRefusal;
    /// The pseudo connection's entry counts for nothing.
    bool isDummy = false;
};

/// A user's identity, what each hub thinks of it, and the events on their way to the application. Hub threads
/// report to it, the first user thread delivers from it; its handle owns it.
class UserInfoImpl : public tp::OfOneProcess {
public:
    UserInfoImpl(std::string userName, tivra::Password password, tivra::UserEventHandler& userHandler,
                 tivra::UserInfo& userInfo);
    UserInfoImpl(std::string userName, tivra::PasswordHandler& passwords,
                 tivra::UserEventHandler& userHandler, tivra::UserInfo& userInfo);
    ~UserInfoImpl();
    UserInfoImpl(const UserInfoImpl&) = delete;
    UserInfoImpl& operator=(const UserInfoImpl&) = delete;

    [[nodiscard]] const std::string& getUserName() const { return userName; }
    [[nodiscard]] PasswordSource& passwords() { return m_passwords; }
    /// Name and password, where that is kept, can go to a hub; if not, a warning has been logged. @thread any
    [[nodiscard]] bool isUsable() const noexcept { return m_isUsable; }
    /// @thread any
    [[nodiscard]] tivra::UserInfo::States getState() const { return userState; }

    /// A connection has been made. An entry that exists already is kept.
    void newHub(const UserHub* hub);
    /// A connection is going; it isn't called through any more.
    void deleteHub(const UserHub* hub);
    /// A connection has closed.
    void resetHub(const UserHub* hub);
    /// A hub has answered a login with `rc`.
    void loginResult(const UserHub* hub, tivra::UserEvent::Types type, int rc, tivra::Session& session,
                     const RetCodeTexts& texts);

    /// Delivers one event, if there is one; no mutex is held in the callback. @thread user
    void handleEvents();
    /// @thread any
    [[nodiscard]] bool eventQueueEmpty() const;
    /// Drops the undelivered events of a session that is about to be destroyed; its threads have ended.
    void discardEvents(const tivra::Session& session);

private:
    void updateState() TP_REQUIRES(m_hubAuthStateMap_mutex);
    struct Standing {
        tivra::UserInfo::States state; ///< of the user, with this result
        bool isRepeated;               ///< the hub has refused the user with the same code before
    };
    Standing storeLoginResult(const UserHub* hub, tivra::UserEvent::Types type, int rc);

    const std::string userName;
    PasswordSource m_passwords;
    const bool m_isUsable;
    tivra::UserEventHandler& userHandler;
    tivra::UserInfo& userInfo;
    std::atomic<tivra::UserInfo::States> userState{tivra::UserInfo::NOT_AUTHENTICATED};

    mutable tp::Mutex m_user_mutex{kLockUser};
    /// Type of the last queued event, -1 for none yet: the application hears of changes only.
    short lastLoginEventType TP_GUARDED_BY(m_user_mutex) = -1;
    int m_lastEventCode TP_GUARDED_BY(m_user_mutex) = 0; ///< its code
    std::deque<HandlePtr<tivra::UserEvent>> eventQueue TP_GUARDED_BY(m_user_mutex);

    tp::Mutex m_hubAuthStateMap_mutex{kLockHubAuthStateMap};
    std::map<const UserHub*, std::unique_ptr<AuthState>>
        hubAuthStateMap TP_GUARDED_BY(m_hubAuthStateMap_mutex);
};

} // namespace tivra_internal
