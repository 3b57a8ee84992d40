#pragma once

#include <tp/Clock.h>

namespace tivra_internal {

/// Lets one line of a kind through per second, whoever else logs. One thread.
class LogPace {
public:
    [[nodiscard]] bool mayLog() noexcept {
        const double now = tp::Clock::monotonic();
        if (now - m_last < 1.0 && now >= m_last)
            return false;
        m_last = now;
        return true;
    }

private:
    double m_last = -1e9;
};

} // namespace tivra_internal
