#pragma once

#include <functional>

namespace tivra_internal {

/// When a hub that has refused the login is dialled again: 1, 2, 4 ... 30 seconds later, each up to a fifth
/// longer, so that no account is locked by repetition and clients that were refused together come apart.
/// @thread hub
class RetryPace {
public:
    /// `random` gives numbers from 0 up to 1.
    explicit RetryPace(std::function<double()> random);

    /// Refused at `now`, in seconds of a clock that never goes back; returns the seconds to wait.
    double refused(double now);
    /// The next refusal is a first one again.
    void accepted();
    [[nodiscard]] bool mayDial(double now) const { return now >= m_nextDial; }

private:
    std::function<double()> m_random;
    double m_wait = 0.0; ///< after the last refusal, without what chance adds; 0: none since an acceptance
    double m_nextDial = 0.0;
};

} // namespace tivra_internal
