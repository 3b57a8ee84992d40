#pragma once

#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class UserEventReactor;

/// The loops of the user threads for those who have something for them, for as long as they are there. The
/// first is that of the first user thread. @thread any
class UserLoops {
public:
    void add(UserEventReactor* loop) TP_EXCLUDES(m_mutex);
    /// It is about to be deleted, or all are.
    void remove(const UserEventReactor* loop) TP_EXCLUDES(m_mutex);
    void clear() TP_EXCLUDES(m_mutex);
    /// See UserThreadWork::Ask.
    void askFirst(unsigned what) TP_EXCLUDES(m_mutex);
    void askAll(unsigned what) TP_EXCLUDES(m_mutex);

private:
    tp::Mutex m_mutex{kLockUserLoops};
    std::vector<UserEventReactor*> m_loops TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
