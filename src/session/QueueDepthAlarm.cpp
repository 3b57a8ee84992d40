#include "session/QueueDepthAlarm.h"

#include <string>

#include <event/SessionEvent.h>

#include "session/SessionEventQueue.h"

namespace tivra_internal {
namespace {

using tivra::SessionEvent;

constexpr double kSecondsOfAlarm = 1.0;

} // namespace

void QueueDepthAlarm::raise(int depth, int threshold, double now) {
    const tp::MutexLock lock(m_depth_mutex);
    raiseFor(depth, threshold, now);
}

bool QueueDepthAlarm::look(const std::function<int()>& fullest, int threshold, double now) {
    const tp::MutexLock lock(m_depth_mutex);
    const int depth = fullest();
    raiseFor(depth, threshold, now);
    const double held = now - m_lastAboveThresholdEventTime;
    if (depth < threshold && m_lastRcvQueueDepth >= threshold && (held < 0.0 || held > kSecondsOfAlarm)) {
        m_lastRcvQueueDepth = depth;
        m_events.push(SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD, std::string(), 0, depth);
    }
    return depth > 0 || m_lastRcvQueueDepth >= threshold;
}

void QueueDepthAlarm::raiseFor(int depth, int threshold, double now) {
    if (depth < threshold || m_lastRcvQueueDepth >= threshold)
        return;
    m_lastRcvQueueDepth = depth;
    m_lastAboveThresholdEventTime = now;
    m_events.push(SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD, std::string(), 0, depth);
}

void QueueDepthAlarm::forget() {
    const tp::MutexLock lock(m_depth_mutex);
    m_lastRcvQueueDepth = 0;
    m_lastAboveThresholdEventTime = 0.0;
}

} // namespace tivra_internal
