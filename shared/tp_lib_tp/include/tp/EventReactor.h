#pragma once

#include <tp/EventBase.h>
#include <tp/ReactorWait.h>
#include <tp/TimerList.h>

#include <atomic>
#include <memory>
#include <sys/epoll.h>

namespace tp {

/// The loop of a thread that serves sockets and timers and brackets each burst of work. It belongs to the
/// thread that runs begin(), which alone may call it; only end() may come from any thread. It borrows what
/// is registered and allocates nothing after construction. It is large: keep it off a thread's stack.
class EventReactor {
public:
    /// `poll` serves a kernel without working epoll; `automatic` finds out.
    enum class Backend { automatic, poll };

    static constexpr int maxEvents = 4096;
    using Timers = TimerList<EventBase, wake_t, maxEvents>;
    /// The waketime that means "never".
    static constexpr double suspendTime = Timers::suspendTime;

    explicit EventReactor(Backend backend = Backend::automatic);
    virtual ~EventReactor();
    EventReactor(const EventReactor&) = delete;
    EventReactor& operator=(const EventReactor&) = delete;

    /// Runs the loop until end(); may be called again afterwards.
    virtual void begin();
    /// Makes begin() return after the pass under way, which may wait up to one second. Any thread.
    virtual void end();

    /// Watches the descriptor for hang-up alone until watchReads() or watchWrites(). A full reactor
    /// logs and registers nothing, as does an object that already has a socket.
    void regSocket(EventBase* event, int fd);
    void unRegSocket(EventBase* event);
    /// Puts another descriptor in the place of the old one; what is watched stays.
    void changeSocketFD(EventBase* event, int fd);
    /// @return the descriptor, or -1 of an object without a socket
    [[nodiscard]] int getSocketFD(const EventBase* event) const;

    // All four have no effect on an object without a socket.
    void watchReads(EventBase* event);
    void unWatchReads(EventBase* event);
    void watchWrites(EventBase* event);
    void unWatchWrites(EventBase* event);

    /// Calls the object's preActivityEvent and postActivityEvent around each burst.
    void regActivity(EventBase* event);
    void unRegActivity(EventBase* event);

    /// `waketime` is absolute. A full reactor logs and registers nothing, as does an object that already
    /// has a timer.
    void regTimer(EventBase* event, double waketime) { m_timers.add(event, waketime); }
    void unRegTimer(EventBase* event) { m_timers.remove(event); }

    /// The time right after the last wait.
    [[nodiscard]] double getCurTime() const noexcept { return m_curLoopTime; }

private:
    void probeEPoll();
    void mainLoop();
    void doPreIO(double curtime);
    void doPostIO(double curtime);
    [[nodiscard]] int doPolls(int timeout);
    [[nodiscard]] bool servePollSlot(int slot, double curtime);
    [[nodiscard]] int doEPolls(int timeout);

    void addEPoll(EventBase* event);
    void modEPoll(EventBase* event);
    void delEPoll(EventBase* event);
    void controlEPoll(EventBase* event, int operation, const char* name);
    void clearflagsEPoll(const EventBase* event, unsigned flags);

    void watch(EventBase* event, short flag);
    void unWatch(EventBase* event, short flag);

    std::atomic<int> m_mustExit{0};
    int m_inBurst = 0;
    double m_curLoopTime = 0.0;
    double m_lastLoopTime = 0.0;
    ReactorWait m_wait;

    int m_epoll_fd = -1;
    int m_epoll_count = 0;
    std::unique_ptr<epoll_event[]> m_epoll_events;
    bool m_epoll_supported = false;

    int m_socketCount = 0;
    pollfd m_pollList[maxEvents];
    EventBase* m_sockets[maxEvents];

    int m_activityCount = 0;
    EventBase* m_activity[maxEvents];

    Timers m_timers;
};

} // namespace tp
