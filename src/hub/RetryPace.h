#pragma once

#include <functional>

namespace tivra_internal {

/// The pauses between attempts, in seconds: each is twice the one before, up to the longest.
struct RetryPauses {
    double first = 1.0;
    double longest = 30.0;
    double mostAdded = 0.2; ///< so much of it is added at most, by chance
};

/// When a hub is dialled again after an attempt that has failed: a refused login for example 1, 2, 4 ... 30
/// seconds later, each up to a fifth longer, so that no account is locked by repetition and clients that were
/// refused together come apart. @thread hub
class RetryPace {
public:
    /// `random` gives numbers from 0 up to 1.
    explicit RetryPace(std::function<double()> random, RetryPauses pauses = {});

    /// Refused at `now`, in seconds of a clock that never goes back; returns the seconds to wait.
    double refused(double now);
    /// The next refusal is a first one again.
    void accepted();
    [[nodiscard]] bool mayDial(double now) const { return now >= m_nextDial; }
    [[nodiscard]] double nextDial() const { return m_nextDial; }

private:
    std::function<double()> m_random;
    const RetryPauses m_pauses;
    double m_wait = 0.0; ///< after the last refusal, without what chance adds; 0: none since an acceptance
    double m_nextDial = 0.0;
};

} // namespace tivra_internal
