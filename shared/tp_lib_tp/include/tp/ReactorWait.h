#pragma once

namespace tp {

/// How long a reactor waits in one pass, and what it does when the wait fails. Used by the reactor's thread.
class ReactorWait {
public:
    /// A burst spins without sleeping for as long as there is input; an idle reactor wakes once a second.
    /// @param untilTimer  seconds, any value
    [[nodiscard]] static int milliseconds(bool inBurst, double untilTimer) noexcept;

    /// Logs the failure that `errno` tells, at most once a second, and sleeps: a wait that fails for good
    /// must not turn the loop into a busy one. An interrupted wait is no failure.
    void handleFailure(int waitMs);

private:
    double m_lastLog = -1e17; // monotonic
};

} // namespace tp
