#pragma once

#include "TivraApi.h"

namespace tivra {

class StatisticsEvent;

/// What an application implements to receive the counters of its session at a fixed interval.
///
/// The contract of the callback:
///  - Thread: the first user thread of the library, one call at a time.
///  - May be called inside: Session::getState, Session::send and the like; not Session::start,
///    Session::stop, APIFactory::destroySession or APIFactory::destroyUserInfo.
///  - May be kept: nothing; the event is destroyed when the call returns.
///  - How long: well below a millisecond; the timers of that thread wait for it.
///  - An exception that leaves it ends there with a critical line in the log; the session goes on.
///
/// The library never deletes a handler; it must outlive the session that it was registered with.
class TIVRA_API StatisticsEventHandler {
public:
    /// For derived classes.
    StatisticsEventHandler() = default;
    /// The copy is another handler, which has to be registered itself.
    StatisticsEventHandler(const StatisticsEventHandler&) = default;
    /// Changes nothing in which of them is registered.
    StatisticsEventHandler& operator=(const StatisticsEventHandler&) = default;
    /// Not while the library may still call it; see above.
    virtual ~StatisticsEventHandler();

    /// Called once per interval given to Session::registerStatisticsEventHandler.
    virtual void onStatisticsEvent(const StatisticsEvent& event) = 0;
};

} // namespace tivra
