#pragma once

#include <condition_variable>
#include <mutex>

namespace tivra_testkit {

/// Holds up whoever comes until it is opened: a callback, for instance. For any threads.
class Gate {
public:
    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isOpen; });
    }
    void open() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = false;
};

} // namespace tivra_testkit
