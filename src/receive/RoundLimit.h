#pragma once

#include <algorithm>
#include <cstdint>

#include <tp/Clock.h>

namespace tivra_internal {

/// How long the handlers of one dispatch may get further calls: a millisecond from the start of their first.
///
/// A reading of the clock costs a good part of a short message. So there is one after the first call, and
/// then after ever more calls while they are quick; a slow one brings back the reading after each. In between
/// the process's beat shows that a call was slow. @thread user, or hub where it delivers
class RoundLimit {
public:
    /// To be asked before each further call.
    [[nodiscard]] bool isReached() noexcept {
        if (--m_untilReading > 0 && tp::Clock::beats() == m_beats)
            return false;
        const double now = tp::Clock::monotonic();
        const int calls = m_callsPerReading - m_untilReading;
        const bool areQuick = now - m_lastReading < calls * kQuickCall;
        m_areShort = now - m_lastReading < calls * kShortCall;
        m_callsPerReading =
            areQuick ? std::min(4 * m_callsPerReading, m_areShort ? kMostCalls : kFewCalls) : 1;
        m_untilReading = m_callsPerReading;
        m_lastReading = now;
        m_beats = tp::Clock::beats();
        return now - m_start >= kSeconds;
    }

    /// So many calls were made without asking.
    void addUnasked(int calls) noexcept { m_untilReading -= calls; }

    /// Calls are so short that a change from one handler to another would cost a good part of one. As far as
    /// the last reading has shown; false before the first.
    [[nodiscard]] bool areShort() const noexcept { return m_areShort; }

private:
    static constexpr double kSeconds = 0.001;
    static constexpr int kMostCalls = 16;
    /// Of calls that are quick but not short, so that one long call among them doesn't count for long.
    static constexpr int kFewCalls = 4;
    /// The mean of calls that are read after so many only: these together take a quarter of the limit.
    static constexpr double kQuickCall = kSeconds / 64;
    static constexpr double kShortCall = 1e-6;

    const double m_start = tp::Clock::monotonic();
    double m_lastReading = m_start;
    uint32_t m_beats = tp::Clock::beats();
    int m_callsPerReading = 1;
    int m_untilReading = 1;
    bool m_areShort = false;
};

} // namespace tivra_internal
