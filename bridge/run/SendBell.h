#pragma once

#include <tp/Mutex.h>

#include <chrono>
#include <utility>

namespace tivra_bus {

/// Wakes the thread that sends. @thread any
class SendBell {
public:
    void ring() {
        const tp::MutexLock lock(m_mutex);
        m_isRung = true;
        m_rung.notifyOne();
    }
    /// Whether it was rung since the last time.
    [[nodiscard]] bool take() {
        const tp::MutexLock lock(m_mutex);
        return std::exchange(m_isRung, false);
    }
    /// Until it is rung, or was since the last time, for so long at most.
    void wait(std::chrono::milliseconds longest) {
        const tp::MutexLock lock(m_mutex);
        if (!m_isRung)
            m_rung.waitFor(m_mutex, longest);
        m_isRung = false;
    }

private:
    tp::Mutex m_mutex;
    tp::ConditionVariable m_rung;
    bool m_isRung TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_bus
