#pragma once

#include <deque>

namespace tivra_internal {

/// How many requests a hub thread may write: at most 500 in any 50 milliseconds. Times are monotonic seconds.
/// @thread hub
class RequestPace {
public:
    /// How many may be written now.
    [[nodiscard]] unsigned allowance(double now);
    void note(double now, unsigned count);
    /// How long it takes until more may be written, where that is nothing now.
    [[nodiscard]] double secondsToNext(double now) const;

private:
    struct Batch {
        double time;
        unsigned count;
    };

    static constexpr unsigned kMost = 500;
    static constexpr double kSeconds = 0.05;

    std::deque<Batch> m_written; ///< in the last 50 milliseconds
    unsigned m_count = 0;        ///< of them all
};

} // namespace tivra_internal
