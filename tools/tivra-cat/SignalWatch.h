#pragma once

#include "Wakeup.h"

#include <chrono>

namespace tivra_cat {

/// Takes SIGINT and SIGTERM as events of the main thread's waits. Make it before any other thread starts, so
/// that all of them leave the signals alone.
class SignalWatch {
public:
    explicit SignalWatch(const Wakeup& wakeup);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// Waits for a signal, the wakeup or the time, whichever comes first.
    void wait(std::chrono::milliseconds atMost);
    /// How many signals have come in all. What comes within 300 ms of the first is that one again: timeout(1)
    /// sends one to its child and one to the child's group.
    [[nodiscard]] int count() const { return m_count; }

private:
    void note(std::chrono::steady_clock::time_point now);

    const Wakeup& m_wakeup;
    int m_fd;
    int m_count = 0;
    std::chrono::steady_clock::time_point m_first; ///< when the first came
};

} // namespace tivra_cat
