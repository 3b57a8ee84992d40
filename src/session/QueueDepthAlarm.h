#pragma once

namespace tivra_internal {

/// Whether the fullest receive queue is at its limit. An alarm holds for more than a second, so that a queue
/// that sits at the limit does not alternate events. @thread first user
class QueueDepthAlarm {
public:
    enum class Change { None, Raised, Cleared };

    /// `pct` and `threshold` are percent, `now` is monotonic.
    [[nodiscard]] Change update(int pct, int threshold, double now) {
        const bool wasAbove = m_lastRcvQueueDepth >= threshold;
        if (pct >= threshold && !wasAbove) {
            m_lastRcvQueueDepth = pct;
            m_lastAboveThresholdEventTime = now;
            return Change::Raised;
        }
        const double held = now - m_lastAboveThresholdEventTime;
        if (pct < threshold && wasAbove && (held < 0.0 || held > kSecondsOfAlarm)) {
            m_lastRcvQueueDepth = pct;
            return Change::Cleared;
        }
        return Change::None;
    }

    /// A queue was at the limit when it was last updated, or the alarm still holds.
    [[nodiscard]] bool isRaised(int threshold) const { return m_lastRcvQueueDepth >= threshold; }

private:
    static constexpr double kSecondsOfAlarm = 1.0;

    int m_lastRcvQueueDepth = 0;
    double m_lastAboveThresholdEventTime = 0.0;
};

} // namespace tivra_internal
