#include "api/LiveObjects.h"

#include <utility>

#include "request/RequestImpl.h"

namespace tivra_internal {

LiveObjects& LiveObjects::instance() {
    static auto* const objects = new LiveObjects;
    return *objects;
}

tivra::UserInfo& LiveObjects::addUser(HandlePtr<tivra::UserInfo> user) {
    tivra::UserInfo& added = *user;
    const tp::MutexLock lock(m_mutex);
    m_users.emplace(&added, std::move(user));
    return added;
}

tivra::Session& LiveObjects::addSession(HandlePtr<tivra::Session> session, tivra::UserInfo& user) {
    tivra::Session& added = *session;
    const tp::MutexLock lock(m_mutex);
    SessionEntry& entry = m_sessions[&added];
    try {
        entry.use = m_usersInUse.insert(&user);
    } catch (...) {
        m_sessions.erase(&added);
        throw;
    }
    // Last, since its destructor takes our mutex: one that doesn't get in ends with the caller's argument.
    entry.session = std::move(session);
    return added;
}

tivra::Request& LiveObjects::addRequest(HandlePtr<tivra::Request> request, const tivra::Session& session) {
    tivra::Request& added = *request;
    const tp::MutexLock lock(m_mutex);
    m_requests.emplace(&added, RequestEntry{std::move(request), &session});
    return added;
}

LiveObjects::UserAnswer LiveObjects::takeUser(tivra::UserInfo& user, HandlePtr<tivra::UserInfo>& taken) {
    const tp::MutexLock lock(m_mutex);
    const auto it = m_users.find(&user);
    if (it == m_users.end())
        return UserAnswer::Unknown;
    if (m_usersInUse.count(&user) != 0)
        return UserAnswer::InUse;
    taken = std::move(it->second);
    m_users.erase(it);
    return UserAnswer::Taken;
}

LiveObjects::TakenSession LiveObjects::takeSession(tivra::Session& session) {
    const tp::MutexLock lock(m_mutex);
    const auto it = m_sessions.find(&session);
    if (it == m_sessions.end())
        return {};
    TakenSession taken{std::move(it->second.session), it->second.use};
    m_sessions.erase(it);
    return taken;
}

void LiveObjects::releaseUser(UserUse use) {
    const tp::MutexLock lock(m_mutex);
    m_usersInUse.erase(use);
}

HandlePtr<tivra::Request> LiveObjects::takeRequest(tivra::Request& request) {
    const tp::MutexLock lock(m_mutex);
    const auto it = m_requests.find(&request);
    if (it == m_requests.end())
        return nullptr;
    HandlePtr<tivra::Request> taken = std::move(it->second.request);
    m_requests.erase(it);
    return taken;
}

void LiveObjects::detachRequests(const tivra::Session& session) {
    const tp::MutexLock lock(m_mutex);
    for (auto& [handle, entry] : m_requests) {
        if (entry.session == &session) {
            HandleAccess::impl(*handle).detachSession();
            entry.session = nullptr;
        }
    }
}

} // namespace tivra_internal
