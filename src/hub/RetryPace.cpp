#include "hub/RetryPace.h"

#include <algorithm>
#include <utility>

namespace tivra_internal {

namespace {

constexpr double kFirstWait = 1.0; // seconds, as the next
constexpr double kLongestWait = 30.0;
constexpr double kMostAdded = 0.2;

} // namespace

RetryPace::RetryPace(std::function<double()> random) : m_random(std::move(random)) {}

double RetryPace::refused(double now) {
    m_wait = m_wait == 0.0 ? kFirstWait : std::min(2.0 * m_wait, kLongestWait);
    const double wait = m_wait * (1.0 + kMostAdded * m_random());
    m_nextDial = now + wait;
    return wait;
}

void RetryPace::accepted() {
    m_wait = 0.0;
    m_nextDial = 0.0;
}

} // namespace tivra_internal
