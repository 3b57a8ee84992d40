#include "session/threads/UserThread.h"

#include <tp/eprintf.h>

#include "session/threads/Ticks.h"

namespace tivra_internal {

UserThread::UserThread(UserEventReactor& reactor, UserThreadWork& work)
    : m_reactor(reactor)
    , m_work(work)
    , m_statistics(reactor,
                   [this](double now) {
                       return m_work.calc_user_stats(now, m_reactor) ? kHundredMilliseconds : Timer::kRest;
                   })
    , m_lostAnswers(reactor, [this](double) {
        switch (m_work.endLostRequests(m_reactor)) {
        case UserThreadWork::Lost::MoreNow:
            return 0.0;
        case UserThreadWork::Lost::MoreLater:
            return kTenMilliseconds; // until what is in front of a lost answer has been delivered
        case UserThreadWork::Lost::NoMore:
            break;
        }
        return Timer::kRest;
    }) {
    m_reactor.setListener(this);
}

UserThread::~UserThread() {
    m_reactor.setListener(nullptr);
}

void UserThread::run() {
    eprintf(EPF_INFO, "Starting User EventReactor");
    m_reactor.begin();
    loopHasEnded();
    eprintf(EPF_INFO, "Ending User EventReactor");
}

void UserThread::asked(unsigned what, double) {
    if ((what & UserThreadWork::kEndLostRequests) != 0)
        m_lostAnswers.runSoon();
}

void UserThread::sourcesReady(double now) {
    if (!m_statistics.isResting())
        return;
    // The silence before is not a part of the 100 ms that begin here.
    m_work.calc_user_stats(now, m_reactor);
    m_statistics.endRest(now + kHundredMilliseconds);
}

} // namespace tivra_internal
