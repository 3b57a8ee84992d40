#include <tp/Clock.h>

namespace tp {

namespace {

// Added to the system's times, or, while the clocks stand, the times themselves. They stay as they are when
// the clocks become real again, for a thread that is in the middle of reading them.
std::atomic<bool> s_stands{false};
std::atomic<double> s_wall{0.0};
std::atomic<double> s_monotonic{0.0};

void add(std::atomic<double>& value, double seconds) noexcept {
    double old = value.load();
    while (!value.compare_exchange_weak(old, old + seconds)) {
    }
}

void clear() noexcept {
    s_stands = false;
    s_wall = 0.0;
    s_monotonic = 0.0;
}

} // namespace

void Clock::setManual(double epochSeconds, double monotonicSeconds) noexcept {
    s_wall = epochSeconds;
    s_monotonic = monotonicSeconds;
    s_stands = true;
    s_replaced = true;
}

void Clock::advance(double seconds) noexcept {
    if (!s_replaced)
        clear();
    // The monotonic clock first: who sees the new wall time sees the new monotonic time too.
    add(s_monotonic, seconds);
    add(s_wall, seconds);
    s_replaced = true;
    beat();
}

void Clock::stepWallClock(double seconds) noexcept {
    if (!s_replaced)
        clear();
    add(s_wall, seconds);
    s_replaced = true;
}

void Clock::setReal() noexcept {
    s_replaced = false;
}

double Clock::replacedNow() noexcept {
    const double wall = s_wall.load();
    return s_stands.load() ? wall : systemNow() + wall;
}

double Clock::replacedMonotonic() noexcept {
    const double monotonic = s_monotonic.load();
    return s_stands.load() ? monotonic : systemMonotonic() + monotonic;
}

} // namespace tp
