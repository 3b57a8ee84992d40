#pragma once

#include <tp/Clock.h>
#include <tp/LoopListener.h>
#include <tp/Mutex.h>
#include <tp/PollTable.h>
#include <tp/ReactorWait.h>
#include <tp/TimerList.h>
#include <tp/eprintf.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <poll.h>

namespace tp {

/// The loop of a thread that waits for sources, calls the handlers of those that are ready, runs timers and
/// brackets each burst of work. It borrows what is registered and allocates nothing after construction.
///
/// `Poller` knows the sources. It names the types `Event`, whom the loop calls; `Wake`, the record of a
/// timer; `Source` and `Entry`, a source with what is watched of it; `Mutex` and `Lock`, which do nothing
/// where one thread alone registers; and the constants `maxEvents`, `kUnused`, `kLockSources`,
/// `kLockActivity`. It adds, modifies and removes a source with its object, waits, serves what is ready then,
/// and clears what is still pending for an object. SocketPoller shows the form.
template<class Poller>
class ReactorLoop {
public:
    using Event = typename Poller::Event;
    static constexpr int maxEvents = Poller::maxEvents;
    using Timers = TimerList<Event, typename Poller::Wake, maxEvents>;
    /// The waketime that means "never".
    static constexpr double suspendTime = Timers::suspendTime;

    virtual ~ReactorLoop() = default;
    ReactorLoop(const ReactorLoop&) = delete;
    ReactorLoop& operator=(const ReactorLoop&) = delete;

    /// Runs the loop until end(); may be called again afterwards.
    virtual void begin() {
        m_curLoopTime = m_lastLoopTime = Clock::now();
        while (m_mustExit.load(std::memory_order_acquire) == 0)
            mainLoop();
        if (m_inBurst != 0)
            doPostIO(m_curLoopTime);
        m_mustExit.store(0, std::memory_order_release);
    }
    /// Makes begin() return after the pass under way. @thread any
    virtual void end() {
        m_mustExit.store(1, std::memory_order_release);
        m_poller.interrupt();
    }

    /// Whom the loop tells of what it is asked and of ready sources; null for nobody. Borrowed. The loop's
    /// thread, or any while no loop runs.
    void setListener(LoopListener* listener) { m_listener = listener; }
    /// Has the listener hear of these bits soon: the wait under way ends. Bits that it is yet to hear of cost
    /// no more than a look. @thread any
    void ask(unsigned what) {
        if ((m_asked.fetch_or(what) & what) != what)
            m_poller.interrupt();
    }

    // Registration never fails loudly: with a full list, or an object that is registered already, it logs and
    // leaves the object as it was. What watches has no effect on an object without a source.

    void watchReads(Event* event) { watch(event, POLLIN); }
    void unWatchReads(Event* event) { unWatch(event, POLLIN); }

    /// Calls the object's preActivityEvent and postActivityEvent around each burst.
    void regActivity(Event* event) {
        const typename Poller::Lock lock(m_activity_mutex);
        if (m_activityCount >= maxEvents) {
            eprintf(EPF_CRIT, "regActivity: not registered: the reactor is full");
            return;
        }
        m_activity[m_activityCount++] = event;
    }
    void unRegActivity(Event* event) {
        const typename Poller::Lock lock(m_activity_mutex);
        Event** const end = m_activity + m_activityCount;
        Event** const slot = std::find(m_activity, end, event);
        if (slot == end)
            return;
        --m_activityCount;
        *slot = m_activity[m_activityCount];
        m_activity[m_activityCount] = dummy();
    }

    /// `waketime` is absolute, in seconds since the epoch. The loop's thread, or any while no loop runs.
    void regTimer(Event* event, double waketime) { m_timers.add(event, waketime); }
    void unRegTimer(Event* event) { m_timers.remove(event); }
    /// Changes the waketime of a timer, unless that is being called: its handler returns the next one.
    void moveTimer(Event* event, double waketime) { m_timers.move(event, waketime); }

    /// The time right after the last wait.
    [[nodiscard]] double getCurTime() const noexcept { return m_curLoopTime; }

protected:
    using Table = PollTable<Event, typename Poller::Entry, maxEvents>;

    template<class... Args>
    explicit ReactorLoop(Args... args) : m_poller(args...) {
        std::fill(std::begin(m_activity), std::end(m_activity), dummy());
    }

    /// Watches the source for hang-up alone.
    void regSource(Event* event, typename Poller::Source source) {
        const typename Poller::Lock lock(m_source_mutex);
        if (Table::placeOf(event) != nullptr || m_sources.isFull()) {
            Poller::reportRefusal(source, Table::placeOf(event) != nullptr);
            return;
        }
        m_sources.add(event, {source, POLLHUP, 0});
        m_poller.add(*Table::placeOf(event), event);
    }
    void unRegSource(Event* event) {
        const typename Poller::Lock lock(m_source_mutex);
        if (Table::placeOf(event) == nullptr)
            return;
        m_poller.remove(*Table::placeOf(event), event);
        m_sources.remove(event, Poller::kUnused);
    }
    void watch(Event* event, short flag) {
        const typename Poller::Lock lock(m_source_mutex);
        auto* const place = Table::placeOf(event);
        if (place == nullptr || (place->events & flag) != 0)
            return;
        place->events = static_cast<short>(place->events | flag);
        m_poller.modify(*place, event);
    }
    void unWatch(Event* event, short flag) {
        const typename Poller::Lock lock(m_source_mutex);
        auto* const place = Table::placeOf(event);
        if (place == nullptr || (place->events & flag) == 0)
            return;
        place->events = static_cast<short>(place->events & ~flag);
        place->revents = static_cast<short>(place->revents & ~flag);
        m_poller.modify(*place, event);
        m_poller.clearPending(event, static_cast<unsigned short>(flag));
    }

    Poller m_poller;

private:
    /// Stands in an activity slot that a handler vacated while doPreIO or doPostIO walks the list. It is
    /// never destroyed: a reactor may outlive the end of main().
    static Event* dummy() {
        static Event* const s_dummy = new Event;
        return s_dummy;
    }

    void mainLoop() {
        if (m_asked.load() != 0)
            hearAsked();
        m_timers.pass(m_curLoopTime, m_lastLoopTime, [this] { openBurst(); });
        m_lastLoopTime = m_curLoopTime;

        const int wait = ReactorWait::milliseconds(m_inBurst != 0, m_timers.nextTimer() - m_curLoopTime);
        if (m_mustExit.load(std::memory_order_acquire) != 0)
            return;
        const int ready = m_poller.wait(ownTable(), wait);
        const int error = errno;
        m_curLoopTime = Clock::now();
        if (ready > 0) {
            openBurst();
            if (m_listener != nullptr)
                m_listener->sourcesReady(m_curLoopTime);
            m_poller.serve(ownTable(), m_curLoopTime, m_mustExit);
        } else if (ready < 0) {
            errno = error;
            m_wait.handleFailure(wait);
        } else if (m_inBurst != 0) {
            doPostIO(m_curLoopTime);
        }
    }

    void hearAsked() {
        const unsigned what = m_asked.exchange(0);
        if (m_listener != nullptr)
            m_listener->asked(what, m_curLoopTime);
    }

    /// Only a poller whose sources one thread alone registers looks into it.
    Table& ownTable() TP_NO_THREAD_SAFETY_ANALYSIS { return m_sources; }

    void openBurst() {
        if (m_inBurst == 0)
            doPreIO(m_curLoopTime);
    }

    // Handlers may remove activities meanwhile, but where others register, not from within these calls.
    void doPreIO(double curtime) {
        m_inBurst = 1;
        const typename Poller::Lock lock(m_activity_mutex);
        for (int i = m_activityCount - 1; i >= 0; --i)
            m_activity[i]->preActivityEvent(curtime);
    }
    void doPostIO(double curtime) {
        m_inBurst = 0;
        const typename Poller::Lock lock(m_activity_mutex);
        for (int i = m_activityCount - 1; i >= 0; --i)
            m_activity[i]->postActivityEvent(curtime);
    }

    std::atomic<int> m_mustExit{0};
    std::atomic<unsigned> m_asked{0};
    LoopListener* m_listener = nullptr;
    int m_inBurst = 0;
    double m_curLoopTime = 0.0;
    double m_lastLoopTime = 0.0;
    ReactorWait m_wait;

    /// Guards the registration of sources.
    typename Poller::Mutex m_source_mutex{Poller::kLockSources};
    Table m_sources TP_GUARDED_BY(m_source_mutex);

    /// Guards the activities, also while they are called.
    typename Poller::Mutex m_activity_mutex{Poller::kLockActivity};
    int m_activityCount TP_GUARDED_BY(m_activity_mutex) = 0;
    Event* m_activity[static_cast<std::size_t>(maxEvents)] TP_GUARDED_BY(m_activity_mutex);

    Timers m_timers;
};

} // namespace tp
