#pragma once

#include "Picture.h"

namespace tivra_top {

/// How fast a counter grows, over spans of a second at least: shorter ones would show the steps of the clock.
class RateMeter {
public:
    /// A counter that has become smaller has begun anew.
    double take(TimePoint now, std::uint64_t count) {
        const double seconds = std::chrono::duration<double>(now - m_time).count();
        if (m_time == TimePoint{} || count < m_count || seconds < 0.0) {
            m_rate = 0.0;
        } else if (seconds < 1.0) {
            return m_rate;
        } else {
            m_rate = static_cast<double>(count - m_count) / seconds;
        }
        m_time = now;
        m_count = count;
        return m_rate;
    }

private:
    TimePoint m_time;
    std::uint64_t m_count = 0;
    double m_rate = 0.0;
};

} // namespace tivra_top
