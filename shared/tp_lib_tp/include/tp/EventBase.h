#pragma once

#include <cstdint>
#include <poll.h>

namespace tp {

class EventBase;
template<class Event, class Entry, int capacity>
class PollTable;
template<class Event, class Wake, int capacity>
class TimerList;

/// One timer of a reactor: who is called, and when, in seconds since the Unix epoch.
struct wake_t {
    double waketime;
    EventBase* event;
};

/// One signal registration. No reactor delivers signals; the record keeps the shape of EventBase.
struct sigdata_t {
    std::uint64_t sigmask;
    EventBase* event;
};

/// What an EventReactor calls back into. It is used by the reactor's thread alone, and must be
/// unregistered there before it is destroyed. A class that registers for a kind of event overrides its
/// handler: the defaults of readableEvent, writableEvent, timerEvent and signalEvent end the process.
class EventBase {
public:
    EventBase() noexcept = default;
    virtual ~EventBase();

    /// The socket has input, or hung up, or failed: the read tells which.
    virtual void readableEvent(double curtime);
    virtual void writableEvent(double curtime);
    /// Opens a burst of work, before its first event.
    virtual void preActivityEvent(double curtime);
    /// Closes the burst, after its last event: the place to finish batched work.
    virtual void postActivityEvent(double curtime);
    /// @return the next waketime, absolute; a negative one cancels the timer
    virtual double timerEvent(double curtime);
    virtual void signalEvent(double curtime, int signum);

    EventBase(const EventBase&) = delete;
    EventBase& operator=(const EventBase&) = delete;

    [[nodiscard]] bool hasSocket() const noexcept { return m_pollPos != nullptr; }
    [[nodiscard]] bool hasTimer() const noexcept { return m_timerPos != nullptr; }

private:
    template<class Event, class Entry, int capacity>
    friend class PollTable;
    template<class Event, class Wake, int capacity>
    friend class TimerList;

    // The object's entries in the reactor's lists, null while it is not registered.
    pollfd* m_pollPos = nullptr;
    wake_t* m_timerPos = nullptr;
    sigdata_t* m_sigData = nullptr;
};

} // namespace tp
