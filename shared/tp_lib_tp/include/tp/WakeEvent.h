#pragma once

#include <atomic>

namespace tp {

/// A descriptor that other threads make readable, to end one thread's wait for its sockets. Calls before the
/// thread has looked count as one. Where the system has no descriptor to give, isUsable() is false and
/// nothing happens.
class WakeEvent {
public:
    WakeEvent();
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    [[nodiscard]] int fd() const noexcept { return m_fd; }
    [[nodiscard]] bool isUsable() const noexcept { return m_fd >= 0; }
    /// It can't be waited for. Before any other thread knows it.
    void close() noexcept;
    /// @thread any
    void signal() noexcept;
    /// What is signalled from here on makes it readable again. @thread the one that waits
    void drain() noexcept;

private:
    int m_fd;
    std::atomic<bool> m_isSignalled{false};
};

} // namespace tp
