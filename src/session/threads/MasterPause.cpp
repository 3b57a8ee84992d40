#include "session/threads/MasterPause.h"

#include <chrono>
#include <thread>

#include <tp/Clock.h>

namespace tivra_internal {
namespace {

constexpr double kMillisecond = 0.001;
constexpr int kMostPasses = 16; ///< in a millisecond

} // namespace

void MasterPause::end() noexcept {
    if (!m_isEnded.exchange(true))
        m_waker.wake();
}

void MasterPause::wait(double seconds) noexcept {
    if (isStorm(tp::Clock::monotonic())) {
        std::this_thread::sleep_for(std::chrono::duration<double>(kMillisecond));
    } else {
        m_waker.announceIdle();
        if (m_isEnded.load())
            m_waker.cancelIdle();
        else
            m_waker.wait(std::chrono::microseconds(static_cast<long>(seconds * 1e6)));
    }
    // Before the pass, so that what comes during the pass asks for another one.
    m_isEnded.store(false);
}

bool MasterPause::isStorm(double now) noexcept {
    if (now - m_millisecond >= kMillisecond || now < m_millisecond) {
        m_millisecond = now;
        m_passes = 0;
    }
    return ++m_passes >= kMostPasses;
}

} // namespace tivra_internal
