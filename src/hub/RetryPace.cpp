#include "hub/RetryPace.h"

#include <algorithm>
#include <utility>

namespace tivra_internal {

RetryPace::RetryPace(std::function<double()> random, RetryPauses pauses)
    : m_random(std::move(random)), m_pauses(pauses) {}

double RetryPace::refused(double now) {
    m_wait = m_wait == 0.0 ? m_pauses.first : std::min(2.0 * m_wait, m_pauses.longest);
    const double wait = m_wait * (1.0 + m_pauses.mostAdded * m_random());
    m_nextDial = now + wait;
    return wait;
}

void RetryPace::accepted() {
    m_wait = 0.0;
    m_nextDial = 0.0;
}

} // namespace tivra_internal
