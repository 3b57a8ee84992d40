#pragma once

#include <functional>
#include <string>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

/// How one run of a session began, settled once by whoever knows first: the session check, the abort of the
/// start, or `stop`. `start` reads it on the application's thread, so nothing that a later `stop` does can
/// hide the outcome.
class StartLatch {
public:
    enum class Outcome { Pending, Established, Aborted, Stopped };

    /// A new run begins.
    void rearm() {
        tp::MutexLock lock(m_abort_mutex);
        m_outcome = Outcome::Pending;
        m_abortReason.clear();
    }

    /// Settles the run unless it is settled; true when this call did. What `alongside` changes then is there
    /// before anybody can read the outcome; it must take no mutex.
    bool settle(Outcome outcome, const std::string& reason, const std::function<void()>& alongside = {}) {
        tp::MutexLock lock(m_abort_mutex);
        if (m_outcome != Outcome::Pending)
            return false;
        if (alongside)
            alongside();
        m_outcome = outcome;
        m_abortReason = reason;
        m_settled.notifyAll();
        return true;
    }

    /// Waits until the run is settled.
    [[nodiscard]] Outcome wait(std::string& reason) {
        tp::MutexLock lock(m_abort_mutex);
        while (m_outcome == Outcome::Pending)
            m_settled.wait(m_abort_mutex);
        reason = m_abortReason;
        return m_outcome;
    }

private:
    tp::Mutex m_abort_mutex{kLockAbort};
    tp::ConditionVariable m_settled; ///< with that mutex
    Outcome m_outcome TP_GUARDED_BY(m_abort_mutex) = Outcome::Pending;
    std::string m_abortReason TP_GUARDED_BY(m_abort_mutex);
};

} // namespace tivra_internal
