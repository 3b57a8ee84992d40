#pragma once

#include <functional>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class SessionEventQueue;

/// Whether the fullest receive queue is at its limit, and the events of that. Hub threads raise the alarm,
/// which no callback holds up, and the first user thread ends it: so while that is held up one alarm waits
/// for it at the most. An alarm holds for more than a second, so that a queue that sits at the limit does not
/// alternate events.
class QueueDepthAlarm {
public:
    /// The events go to that queue, in the order in which the alarm changes.
    explicit QueueDepthAlarm(SessionEventQueue& events) : m_events(events) {}

    // Numbers are percent, but for `now`, which is monotonic.

    /// A queue has come to the limit. @thread hub
    void raise(int depth, int threshold, double now) TP_EXCLUDES(m_depth_mutex);
    /// Takes a look at the fullest queue. True while the alarm holds, or a queue holds anything. `fullest` is
    /// asked when no other thread can raise the alarm, so that it isn't ended by what was true before.
    /// @thread first user
    [[nodiscard]] bool look(const std::function<int()>& fullest, int threshold, double now)
        TP_EXCLUDES(m_depth_mutex);
    /// No queue is there any more. @thread master; there is no other
    void forget() TP_EXCLUDES(m_depth_mutex);

private:
    void raiseFor(int depth, int threshold, double now) TP_REQUIRES(m_depth_mutex);

    SessionEventQueue& m_events;
    tp::Mutex m_depth_mutex{kLockQueueDepth}; ///< held until an event of the change is in the queue
    int m_lastRcvQueueDepth TP_GUARDED_BY(m_depth_mutex) = 0;
    double m_lastAboveThresholdEventTime TP_GUARDED_BY(m_depth_mutex) = 0.0;
};

} // namespace tivra_internal
