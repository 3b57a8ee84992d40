#pragma once

#include <map>
#include <set>

#include <tp/Process.h>

#include "LockOrder.h"
#include "config/HandleAccess.h"

namespace tivra_internal {

/// Every session, user and request that the application holds a reference to, so that one that it gives
/// back twice (or never got) is recognised instead of destroyed. One for the process, used by application
/// threads; it owns the objects between their making and their giving back.
class LiveObjects {
public:
    /// The process's one; never destroyed, since an application may call in from its static destructors.
    [[nodiscard]] static LiveObjects& instance();

    LiveObjects(const LiveObjects&) = delete;
    LiveObjects& operator=(const LiveObjects&) = delete;

    tivra::UserInfo& addUser(HandlePtr<tivra::UserInfo> user);
    tivra::Session& addSession(HandlePtr<tivra::Session> session, tivra::UserInfo& user);
    tivra::Request& addRequest(HandlePtr<tivra::Request> request, const tivra::Session& session);

    enum class UserAnswer { Taken, Unknown, InUse };
    /// Hands a user over to be destroyed, unless a session refers to it.
    [[nodiscard]] UserAnswer takeUser(tivra::UserInfo& user, HandlePtr<tivra::UserInfo>& taken);

    /// One session's hold on its user.
    using UserUse = std::multiset<const tivra::UserInfo*>::const_iterator;
    /// A session on its way out, and its hold on the user that it may call until it is gone.
    struct TakenSession {
        HandlePtr<tivra::Session> session;
        UserUse use;
    };
    /// Hands a session over to be destroyed; null when it isn't known. Its user stays in use until
    /// releaseUser().
    [[nodiscard]] TakenSession takeSession(tivra::Session& session);
    /// The session that was taken has been destroyed.
    void releaseUser(UserUse use);

    /// Hands a request over to be destroyed; null when it isn't known.
    [[nodiscard]] HandlePtr<tivra::Request> takeRequest(tivra::Request& request);
    /// Takes the session away from its requests: they get no tag from it any more.
    void detachRequests(const tivra::Session& session);

private:
    struct SessionEntry {
        HandlePtr<tivra::Session> session;
        UserUse use;
    };
    struct RequestEntry {
        HandlePtr<tivra::Request> request;
        const tivra::Session* session = nullptr; ///< null when it has gone
    };

    LiveObjects() = default;
    ~LiveObjects() = default;

    tp::ProcessMutex m_mutex{kLockLiveObjects};
    std::map<const tivra::UserInfo*, HandlePtr<tivra::UserInfo>> m_users TP_GUARDED_BY(m_mutex);
    std::map<const tivra::Session*, SessionEntry> m_sessions TP_GUARDED_BY(m_mutex);
    std::multiset<const tivra::UserInfo*> m_usersInUse TP_GUARDED_BY(m_mutex);
    std::map<const tivra::Request*, RequestEntry> m_requests TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
