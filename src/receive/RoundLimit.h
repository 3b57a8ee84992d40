#pragma once

#include <cstdint>

#include <tp/Clock.h>

namespace tivra_internal {

/// How long the handlers of one dispatch may get further calls: a millisecond from the start of their first.
///
/// A reading of the clock costs a good part of a short message. So one is taken before the first further call
/// and every few calls after that; in between the process's beat shows that a call was slow. @thread user, or
/// hub where it delivers
class RoundLimit {
public:
    /// To be asked before each further call.
    [[nodiscard]] bool isReached() noexcept {
        if (m_untilReading-- > 0 && tp::Clock::beats() == m_beats)
            return false;
        m_untilReading = kCallsPerReading - 1;
        m_beats = tp::Clock::beats();
        return tp::Clock::monotonic() - m_start >= kSeconds;
    }

private:
    static constexpr double kSeconds = 0.001;
    static constexpr int kCallsPerReading = 16;

    const double m_start = tp::Clock::monotonic();
    uint32_t m_beats = tp::Clock::beats();
    int m_untilReading = 0;
};

} // namespace tivra_internal
