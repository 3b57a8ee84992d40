#pragma once

#include <atomic>
#include <string>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

/// Whether a hub client is out of use, and for which reason that the application may see. The hub's thread
/// changes it; any thread may read it.
class Suspension {
public:
    [[nodiscard]] bool isSuspended() const { return m_suspended.load(std::memory_order_acquire); }

    [[nodiscard]] std::string reason() const TP_EXCLUDES(m_text_mutex) {
        const tp::MutexLock lock(m_text_mutex);
        return m_suspendReason;
    }

    void suspend(const std::string& reason) TP_EXCLUDES(m_text_mutex) { set(true, reason); }
    void end() TP_EXCLUDES(m_text_mutex) { set(false, {}); }

private:
    void set(bool suspended, const std::string& reason) TP_EXCLUDES(m_text_mutex) {
        const tp::MutexLock lock(m_text_mutex);
        m_suspendReason = reason;
        m_suspended.store(suspended, std::memory_order_release);
    }

    mutable tp::Mutex m_text_mutex{kLockHubTexts};
    std::string m_suspendReason TP_GUARDED_BY(m_text_mutex);
    std::atomic<bool> m_suspended{false};
};

} // namespace tivra_internal
