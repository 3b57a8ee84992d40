// The one way to read time.
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/time.h>
#include <time.h>

namespace tp {

/// Wall-clock and monotonic time, both in seconds. Any thread. Tests may stop, step and advance it for
/// the whole process; in production a reading costs one relaxed load more than the system's clock.
class Clock {
public:
    /// Seconds since the Unix epoch, which may step: for what is shown or handed out.
    [[nodiscard]] static double now() noexcept {
        return s_replaced.load(std::memory_order_relaxed) ? replacedNow() : systemNow();
    }

    /// Seconds since some fixed moment, never stepping back: for differences of two times.
    [[nodiscard]] static double monotonic() noexcept {
        return s_replaced.load(std::memory_order_relaxed) ? replacedMonotonic() : systemMonotonic();
    }

    /// A count that moves while other threads call beat(): shows that time may have passed to those for whom
    /// a reading of the clock is too dear.
    [[nodiscard]] static uint32_t beats() noexcept { return s_beats.load(std::memory_order_relaxed); }
    /// Moves that count. For a thread that has just waited.
    static void beat() noexcept { s_beats.fetch_add(1, std::memory_order_relaxed); }

    /// Somebody else moves the clocks: who waits for a time has to look often.
    [[nodiscard]] static bool isReplaced() noexcept { return s_replaced.load(std::memory_order_relaxed); }

    /// Stops both clocks at the given times; only advance() and stepWallClock() move them from then on.
    static void setManual(double epochSeconds, double monotonicSeconds = 1000.0) noexcept;

    /// Moves both clocks forward, whether they stand or run.
    static void advance(double seconds) noexcept;

    /// Steps the wall clock alone, forward or (negative) back, as an administrator would.
    static void stepWallClock(double seconds) noexcept;

    /// Back to the system's clocks.
    static void setReal() noexcept;

private:
    static double systemNow() noexcept {
        timeval tv{};
        ::gettimeofday(&tv, nullptr);
        return static_cast<double>(tv.tv_usec) / 1e6 + static_cast<double>(tv.tv_sec);
    }
    static double systemMonotonic() noexcept {
        timespec ts{};
        ::clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<double>(ts.tv_nsec) / 1e9 + static_cast<double>(ts.tv_sec);
    }
    static double replacedNow() noexcept;
    static double replacedMonotonic() noexcept;

    static inline std::atomic<bool> s_replaced{false};
    static inline std::atomic<uint32_t> s_beats{0};
};

/// Stops the clocks for the scope of a test and hands them back to the system at its end.
class ManualClock {
public:
    explicit ManualClock(double epochSeconds = 1.7e9) noexcept { Clock::setManual(epochSeconds); }
    ~ManualClock() { Clock::setReal(); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;
};

} // namespace tp
