#pragma once

#include <cstdint>

#include <tp/PollTable.h>
#include <tp/TimerList.h>

#include "receive/QPoll.h"

namespace tivra_internal {

class ServeTurn;

/// What a UserEventReactor calls back into: the handler of a queue, or of a timer. A class that registers for
/// a kind of event overrides its handler; the defaults of all but the activity pair end the process.
/// @thread user
class UserEventBase {
public:
    /// A timer: when to wake, in seconds since the Unix epoch, and whom.
    struct wake_t {
        double waketime;
        UserEventBase* event;
    };
    /// Reserved for signal registration, which no reactor offers.
    struct sigdata_t {
        uint64_t sigmask;
        UserEventBase* event;
    };

    UserEventBase() = default;
    virtual ~UserEventBase();
    UserEventBase(const UserEventBase&) = delete;
    UserEventBase& operator=(const UserEventBase&) = delete;

    virtual void readableEvent(double curtime);
    virtual void writableEvent(double curtime);
    /// Before the first event of a burst of work.
    virtual void preActivityEvent(double curtime);
    /// After the last event of a burst.
    virtual void postActivityEvent(double curtime);
    /// Returns the time of the next call; below 0 there is none.
    virtual double timerEvent(double curtime);
    virtual void signalEvent(double curtime, int signum);
    /// Whether another `readableEvent` would find data; false lets the reactor ask the queue table.
    [[nodiscard]] virtual bool isStillReadable() const noexcept { return false; }
    /// Called in place of `readableEvent` when no other handler has data: does the same once, and again for
    /// as long as there is data and `turn` allows it.
    virtual void readableTurn(double curtime, ServeTurn& turn);

private:
    template<class Event, class Entry, int capacity>
    friend class tp::PollTable;
    template<class Event, class Wake, int capacity>
    friend class tp::TimerList;

    // The places in the reactor's lists, null while not registered.
    QPoll::pollq* m_pollPos = nullptr;
    wake_t* m_timerPos = nullptr;
    sigdata_t* m_sigData = nullptr;
};

} // namespace tivra_internal
