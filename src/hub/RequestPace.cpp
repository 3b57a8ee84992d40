#include "hub/RequestPace.h"

#include <algorithm>

namespace tivra_internal {

unsigned RequestPace::allowance(double now) {
    while (!m_written.empty() && now - m_written.front().time >= kSeconds) {
        m_count -= m_written.front().count;
        m_written.pop_front();
    }
    return kMost - m_count;
}

void RequestPace::note(double now, unsigned count) {
    if (count == 0)
        return;
    m_written.push_back({now, count});
    m_count += count;
}

double RequestPace::secondsToNext(double now) const {
    return m_written.empty() ? 0.0 : std::max(m_written.front().time + kSeconds - now, 0.0);
}

} // namespace tivra_internal
