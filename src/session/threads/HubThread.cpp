#include "session/threads/HubThread.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "request/RequestInternal.h"
#include "session/threads/Ticks.h"

namespace tivra_internal {

HubThread::HubThread(HubEventReactor& reactor, HubThreadWork& work)
    : m_reactor(reactor)
    , m_work(work)
    , m_second(reactor,
               [this](double now) {
                   m_reactor.checkExit();
                   supervise(now, true);
                   tp::eprintf_report_repeats();
                   return kOneSecond;
               })
    , m_dial(reactor, [this](double now) { return dial(now); })
    , m_statistics(reactor,
                   [this](double now) {
                       return m_work.calc_hub_stats(now, m_reactor) ? kHundredMilliseconds
                                                                    : restOr(kHundredMilliseconds);
                   })
    , m_requests(reactor,
                 [this](double) { return m_reactor.writeRequests().value_or(restOr(kFiftyMilliseconds)); })
    , m_fillLevel(reactor, [this](double now) {
        if (!m_work.calc_hub_queue_full_stats(now, m_reactor))
            return restOr(kTwentyFiveMilliseconds);
        // It may have taken bytes in.
        m_statistics.endRest(now + kHundredMilliseconds);
        return kTwentyFiveMilliseconds;
    }) {
    m_reactor.setListener(this);
}

HubThread::~HubThread() {
    m_reactor.setListener(nullptr);
}

void HubThread::run() {
    eprintf(EPF_INFO, "Starting HUB EventReactor");
    m_reactor.begin();
    eprintf(EPF_INFO, "Ending HUB EventReactor");
}

/// A loop that can't be woken has to look by itself.
double HubThread::restOr(double period) const {
    return m_reactor.canBeWoken() ? Timer::kRest : period;
}

void HubThread::asked(unsigned what, double now) {
    if ((what & HubEventReactor::kEnd) != 0) {
        m_reactor.checkExit();
        return;
    }
    if ((what & HubEventReactor::kContinue) != 0)
        m_fillLevel.runSoon();
    if ((what & HubEventReactor::kWriteRequests) != 0)
        m_requests.runSoon();
    if ((what & HubEventReactor::kSupervise) != 0)
        supervise(now, false);
}

void HubThread::supervise(double now, bool isTurn) {
    m_work.check_hub_clients(now, m_reactor, isTurn);
    m_dial.runSoon(); // it sees whether a pause has begun
}

/// Returns the pause before the next dial. One that can't be made yet is tried again soon.
double HubThread::dial(double now) {
    std::optional<double> pause = m_work.pauseBeforeDial(m_reactor);
    if (pause && *pause <= 0.0) {
        m_work.check_hub_clients(now, m_reactor, false);
        pause = m_work.pauseBeforeDial(m_reactor);
    }
    if (!pause)
        return Timer::kRest;
    return *pause > 0.0 ? *pause : kHundredMilliseconds;
}

void HubThread::sourcesReady(double now) {
    tp::Clock::beat();
    m_fillLevel.endRest(now + kTwentyFiveMilliseconds);
    if (!m_statistics.isResting())
        return;
    // The silence before is not a part of the 100 ms that begin here.
    m_work.calc_hub_stats(now, m_reactor);
    m_statistics.endRest(now + kHundredMilliseconds);
}

} // namespace tivra_internal
