#include "session/threads/FirstUserThread.h"

#include "session/threads/Ticks.h"

namespace tivra_internal {

FirstUserThread::FirstUserThread(UserEventReactor& reactor, UserThreadWork& threadWork)
    : UserThread(reactor, threadWork)
    , m_second(reactor,
               [this](double now) {
                   if (m_check.isResting())
                       m_check.runSoon();
                   work().check_user_events();
                   work().check_statistics_events(now);
                   return kOneSecond;
               })
    , m_check(reactor,
              [this](double) { return work().check_session_events() ? kHundredMilliseconds : Timer::kRest; })
    , m_depth(reactor, [this](double) {
        return work().check_queueDepth_events() ? kTwentyFiveMilliseconds : Timer::kRest;
    }) {}

void FirstUserThread::asked(unsigned what, double now) {
    UserThread::asked(what, now);
    // In the order in which a tick of a second has them: the user's events before those of the session.
    if ((what & UserThreadWork::kDeliverUserEvent) != 0)
        work().check_user_events();
    if ((what & UserThreadWork::kCheckSession) != 0)
        m_check.runSoon();
    if ((what & UserThreadWork::kCheckDepth) != 0)
        m_depth.endRest(now + kTwentyFiveMilliseconds);
}

void FirstUserThread::loopHasEnded() {
    work().deliverLastEvents();
}

} // namespace tivra_internal
