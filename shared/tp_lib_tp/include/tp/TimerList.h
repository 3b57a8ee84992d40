#pragma once

#include <tp/eprintf.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tp {

/// The timers of one reactor, in no order, each of which fires at most once a pass. `Event` keeps the place
/// of its timer in `m_timerPos` and makes this class a friend; `Wake` is the record of a time and an event.
/// Used by the reactor's thread alone; handlers may add and remove timers while it walks. Allocates nothing.
template<class Event, class Wake, int capacity>
class TimerList {
public:
    /// The waketime that means "never".
    static constexpr double suspendTime = 1e17;

    TimerList() { std::fill(std::begin(m_timers), std::end(m_timers), Wake{suspendTime, nullptr}); }
    TimerList(const TimerList&) = delete;
    TimerList& operator=(const TimerList&) = delete;

    /// Logs and adds nothing when the list is full or the event has a timer.
    void add(Event* event, double waketime) {
        if (event->m_timerPos != nullptr || m_timerCount >= capacity) {
            eprintf(EPF_CRIT, "regTimer: not registered: %s",
                    event->m_timerPos != nullptr ? "the object has a timer" : "the reactor is full");
            return;
        }
        m_timers[m_timerCount] = Wake{waketime, event};
        event->m_timerPos = &m_timers[m_timerCount];
        ++m_timerCount;
        m_nextTimer = std::min(m_nextTimer, waketime);
    }

    void remove(Event* event) {
        if (event->m_timerPos == nullptr)
            return;
        const auto slot = event->m_timerPos - m_timers;
        const int last = --m_timerCount;
        if (slot != last) {
            m_timers[slot] = m_timers[last];
            m_timers[slot].event->m_timerPos = &m_timers[slot];
        }
        m_timers[last] = Wake{suspendTime, nullptr};
        event->m_timerPos = nullptr;
    }

    /// Changes the waketime of an event that has a timer; one that is being called returns its own.
    void move(Event* event, double waketime) {
        if (event->m_timerPos == nullptr)
            return;
        event->m_timerPos->waketime = waketime;
        m_nextTimer = std::min(m_nextTimer, waketime);
    }

    /// The earliest waketime known.
    [[nodiscard]] double nextTimer() const noexcept { return m_nextTimer; }

    /// The timers' part of a pass at `curtime`, the one before having been at `lasttime`. `openBurst` is
    /// called before each due timer; it opens the burst unless that is open, and may change the list.
    template<class OpenBurst>
    void pass(double curtime, double lasttime, OpenBurst openBurst) {
        if (lasttime > curtime + 1.0) {
            eprintf(EPF_CRIT, "Time went backwards - trying to cope. (old=%.3f new=%.3f)", lasttime, curtime);
            // As far past the old time as the clock jumped back: what was due within the jump must not sleep
            // for the length of it.
            wake(curtime, lasttime + (lasttime - curtime), openBurst);
        } else if (curtime >= m_nextTimer) {
            wake(curtime, curtime, openBurst);
        }
    }

private:
    template<class OpenBurst>
    void wake(double curtime, double limit, OpenBurst& openBurst) {
        m_nextTimer = suspendTime;
        for (int i = m_timerCount - 1; i >= 0; --i) {
            // A handler may have removed entries: what lies past the end is suspended and has no object.
            if (m_timers[i].event == nullptr)
                continue;
            if (limit >= m_timers[i].waketime)
                openBurst();
            const Wake entry = m_timers[i]; // read again
            if (entry.event == nullptr)
                continue;
            if (limit >= entry.waketime)
                call(entry.event, curtime);
            else
                m_nextTimer = std::min(m_nextTimer, entry.waketime);
        }
    }

    void call(Event* event, double curtime) {
        const double next = event->timerEvent(curtime);
        if (next < 0.0) {
            remove(event);
        } else if (event->m_timerPos != nullptr) {
            event->m_timerPos->waketime = next;
            m_nextTimer = std::min(m_nextTimer, next);
        }
    }

    int m_timerCount = 0;
    Wake m_timers[static_cast<std::size_t>(capacity)];
    double m_nextTimer = 0.0; // so the first pass looks at the timers
};

} // namespace tp
