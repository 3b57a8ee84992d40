#include <tp/ReactorWait.h>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <thread>

namespace tp {

namespace {

/// Of one wait, in seconds.
constexpr double kLongest = 1.0;
constexpr double kLongestReplaced = 0.01;

} // namespace

int ReactorWait::milliseconds(bool inBurst, double untilTimer) noexcept {
    if (inBurst)
        return 0;
    const double longest = Clock::isReplaced() ? kLongestReplaced : kLongest;
    if (!(untilTimer > 0.0))
        return 1;
    // Rounded up: a wait that ends just before its timer is followed by another one.
    return static_cast<int>(std::ceil(std::min(untilTimer, longest) * 1000.0));
}

void ReactorWait::handleFailure(int waitMs) {
    if (errno == EINTR)
        return;
    const double now = Clock::monotonic();
    if (now - m_lastLog >= 1.0 || now < m_lastLog) {
        m_lastLog = now;
        eperror(EPF_CRIT, "Error on poll");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(std::max(waitMs, 10)));
}

} // namespace tp
