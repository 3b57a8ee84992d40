#include "feed/LaterThread.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <tp/Clock.h>

namespace tivra_internal {
namespace {

/// Nobody says when somebody moves the clock.
constexpr double kLookAtReplacedClock = 0.001;
constexpr double kLongestWait = 3600.0;

} // namespace

LaterThread::LaterThread() : m_thread("tivra-feed", [this] { loop(); }) {}

LaterThread::~LaterThread() {
    end();
}

void LaterThread::runAt(double time, Work work) {
    const tp::MutexLock lock(m_mutex);
    if (m_isEnding)
        return;
    const bool isFirst = m_work.empty() || time < m_work.begin()->first;
    m_work.emplace(time, std::move(work));
    if (isFirst)
        m_changed.notifyAll();
}

void LaterThread::end() {
    std::multimap<double, Work> dropped; // goes without the mutex
    {
        const tp::MutexLock lock(m_mutex);
        m_isEnding = true;
        dropped.swap(m_work);
        m_changed.notifyAll();
    }
    if (!m_thread.isCurrent() && m_thread.getId() != std::thread::id())
        m_thread.join();
}

void LaterThread::loop() {
    tp::MutexLock lock(m_mutex);
    while (!m_isEnding) {
        if (Work work = takeDue()) {
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
        } else {
            waitForDue();
        }
    }
}

LaterThread::Work LaterThread::takeDue() {
    if (m_work.empty() || m_work.begin()->first > tp::Clock::monotonic())
        return nullptr;
    Work work = std::move(m_work.begin()->second);
    m_work.erase(m_work.begin());
    return work;
}

void LaterThread::waitForDue() {
    if (m_work.empty()) {
        m_changed.wait(m_mutex);
        return;
    }
    const double wait = m_work.begin()->first - tp::Clock::monotonic();
    const double limit = tp::Clock::isReplaced() ? kLookAtReplacedClock : kLongestWait;
    m_changed.waitFor(m_mutex, std::chrono::duration<double>(std::clamp(wait, 0.0, limit)));
}

} // namespace tivra_internal
