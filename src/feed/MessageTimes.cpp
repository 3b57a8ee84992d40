#include "feed/MessageTimes.h"

#include "feed/ClockTime.h"

namespace tivra_internal {
void MessageTimes::beginMeasuring() noexcept {
    m_countdown = m_sampling;
    m_isMeasured = true;
    m_callbackAt = 0.0;
    m_decodedAt = tp::Clock::monotonic();
    if (const double readAt = m_frame != nullptr ? m_frame->readAt() : 0.0; readAt > 0.0)
        m_measures->socketToDecode.record(m_decodedAt - readAt);
}

void MessageTimes::measureBegin() noexcept {
    const bool isFirst = m_callbackAt == 0.0;
    m_callbackAt = tp::Clock::monotonic();
    if (isFirst)
        m_measures->decodeToCallback.record(m_callbackAt - m_decodedAt);
}

void MessageTimes::measureEnd() noexcept {
    m_measures->callback.record(tp::Clock::monotonic() - m_callbackAt);
}

std::chrono::system_clock::time_point MessageTimes::receivedAt() noexcept {
    const double readAt = m_frame != nullptr ? m_frame->readAt() : 0.0;
    if (readAt <= 0.0)
        return decodedAt();
    // Messages of one read have one time, and the clocks are looked at once for them.
    if (readAt != m_readAt) {
        m_readAt = readAt;
        m_receivedAt = toTimePoint(onTheWall(readAt));
    }
    return m_receivedAt;
}

std::chrono::system_clock::time_point MessageTimes::decodedAt() noexcept {
    if (m_decodedAt == 0.0)
        m_decodedAt = tp::Clock::monotonic();
    return toTimePoint(onTheWall(m_decodedAt));
}

} // namespace tivra_internal
