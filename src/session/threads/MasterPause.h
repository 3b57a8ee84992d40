#pragma once

#include <atomic>

#include "receive/QueueWaker.h"

namespace tivra_internal {

/// The pause of the master thread between two passes, which whoever has something for it cuts short. While
/// the thread is busy that costs them no more than an exchange.
class MasterPause {
public:
    /// @thread any
    void end() noexcept;
    /// Returns after so many seconds, or at once when end() has been called since the last pause. In a storm
    /// of calls it goes on for a millisecond now and then, so that what has been collected is worth a pass.
    /// @thread master
    void wait(double seconds) noexcept;

private:
    [[nodiscard]] bool isStorm(double now) noexcept;

    std::atomic<bool> m_isEnded{false};
    QueueWaker m_waker;
    double m_millisecond = 0.0; ///< when the one began in which passes are counted; monotonic
    int m_passes = 0;           ///< that ended in it
};

} // namespace tivra_internal
