#include "session/SessionTimers.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubEventReactor.h"
#include "session/SessionImpl.h"

namespace tivra_internal {
namespace {

constexpr double kOneSecond = 1.0;
constexpr double kHundredMilliseconds = 0.1;
constexpr double kFiftyMilliseconds = 0.05;
constexpr double kTwentyFiveMilliseconds = 0.025;
constexpr unsigned kRequestsPerTick = 500;

} // namespace

double HUB_One_Second_Events::timerEvent(double now) {
    HUB_Event_Reactor.checkExit();
    session.check_hub_clients(now, HUB_Event_Reactor);
    tp::eprintf_report_repeats();
    return now + kOneSecond;
}

double HUB_Hundred_MilliSecond_Events::timerEvent(double now) {
    session.calc_hub_stats(now, HUB_Event_Reactor);
    return now + kHundredMilliseconds;
}

double HUB_Fifty_MilliSecond_Events::timerEvent(double now) {
    const double start = tp::Clock::monotonic();
    const int numReqsSent = HUB_Event_Reactor.handle_hub_requests(kRequestsPerTick);
    const double elapsed = tp::Clock::monotonic() - start;
    if (elapsed >= kFiftyMilliseconds)
        eprintf(EPF_DBUG, "HUB_Fifty_MilliSecond_Events::timerEvent(EXIT) elapsed time=%f; numReqsSent=%d",
                elapsed, numReqsSent);
    return now + kFiftyMilliseconds;
}

double HUB_Twenty_Five_MilliSecond_Events::timerEvent(double now) {
    session.calc_hub_queue_full_stats(now, HUB_Event_Reactor);
    return now + kTwentyFiveMilliseconds;
}

double User_Hundred_MilliSecond_Events::timerEvent(double now) {
    session.calc_user_stats(now, User_Event_Reactor);
    return now + kHundredMilliseconds;
}

double User_One_Second_Events::timerEvent(double now) {
    session.check_user_events();
    session.check_statistics_events(now);
    return now + kOneSecond;
}

double First_User_Hundred_MilliSecond_Events::timerEvent(double now) {
    session.check_session_events();
    return now + kHundredMilliseconds;
}

double First_User_Twenty_Five_MilliSecond_Events::timerEvent(double now) {
    session.check_queueDepth_events(now);
    return now + kTwentyFiveMilliseconds;
}

} // namespace tivra_internal
