#pragma once

#include <chrono>

namespace tivra_top {

/// Takes the signals that end the program, and the one of a resized terminal, as events of the main thread's
/// waits. Make it before any other thread starts, so that all of them leave the signals alone.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// Waits for a signal, for something to read from the descriptor (-1 for none), or for the time.
    /// @return whether there is something to read, which may be an end
    bool wait(int fd, std::chrono::milliseconds atMost);
    [[nodiscard]] bool hasEnd() const { return m_hasEnd; }

private:
    int m_fd;
    bool m_hasEnd = false;
};

} // namespace tivra_top
