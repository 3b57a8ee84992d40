#include "session/threads/UserLoops.h"

#include <algorithm>

#include "receive/UserEventReactor.h"

namespace tivra_internal {

void UserLoops::add(UserEventReactor* loop) {
    const tp::MutexLock lock(m_mutex);
    m_loops.push_back(loop);
}

void UserLoops::remove(const UserEventReactor* loop) {
    const tp::MutexLock lock(m_mutex);
    m_loops.erase(std::remove(m_loops.begin(), m_loops.end(), loop), m_loops.end());
}

void UserLoops::clear() {
    const tp::MutexLock lock(m_mutex);
    m_loops.clear();
}

void UserLoops::askFirst(unsigned what) {
    const tp::MutexLock lock(m_mutex);
    if (!m_loops.empty())
        m_loops.front()->ask(what);
}

void UserLoops::askAll(unsigned what) {
    const tp::MutexLock lock(m_mutex);
    for (UserEventReactor* loop : m_loops)
        loop->ask(what);
}

} // namespace tivra_internal
