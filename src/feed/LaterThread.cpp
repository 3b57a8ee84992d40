#include "feed/LaterThread.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <tp/Clock.h>

namespace tivra_internal {
namespace {

/// Nobody says when somebody moves the clock.
constexpr double kLookAtReplacedClock = 0.001;
constexpr double kLongestRest = 3600.0;

} // namespace

LaterThread::LaterThread() : m_thread("tivra-feed", [this] { loop(); }) {}

LaterThread::~LaterThread() {
    end();
}

LaterThread::Ticket LaterThread::runAt(double time, Work work) {
    const tp::MutexLock lock(m_mutex);
    const Ticket ticket(time, ++m_lastTicket);
    if (m_isEnding)
        return ticket;
    const auto entered = m_work.emplace(ticket, std::move(work)).first;
    if (entered == m_work.begin())
        m_changed.notifyAll();
    return ticket;
}

void LaterThread::drop(const Ticket& ticket) {
    Work dropped; // goes without the mutex
    const tp::MutexLock lock(m_mutex);
    const auto found = m_work.find(ticket);
    if (found == m_work.end())
        return;
    dropped.swap(found->second);
    m_work.erase(found);
}

void LaterThread::end() {
    std::map<Ticket, Work> dropped; // goes without the mutex
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
    if (m_work.empty() || m_work.begin()->first.first > tp::Clock::monotonic())
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
    const double wait = m_work.begin()->first.first - tp::Clock::monotonic();
    const double limit = tp::Clock::isReplaced() ? kLookAtReplacedClock : kLongestRest;
    m_changed.waitFor(m_mutex, std::chrono::duration<double>(std::clamp(wait, 0.0, limit)));
}

} // namespace tivra_internal
