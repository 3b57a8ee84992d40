#pragma once

#include <atomic>
#include <memory>

#include <tp/Mutex.h>
#include <tp/ReactorWait.h>
#include <tp/TimerList.h>

#include "receive/QPoll.h"
#include "receive/UserEventBase.h"

namespace tivra_internal {

/// The loop of a user thread: waits for queues to hold data and calls their handlers, runs timers, and
/// brackets each burst of work. One thread runs the loop; others register queues and activities meanwhile.
class UserEventReactor {
public:
    static constexpr int maxEvents = 1024;
    using Timers = tp::TimerList<UserEventBase, UserEventBase::wake_t, maxEvents>;
    /// The time of a timer that never fires.
    static constexpr double suspendTime = Timers::suspendTime;

    explicit UserEventReactor(int index);
    virtual ~UserEventReactor();
    UserEventReactor(const UserEventReactor&) = delete;
    UserEventReactor& operator=(const UserEventReactor&) = delete;

    /// Runs the loop until end(); can be called again after that.
    virtual void begin();
    /// Ends the loop after the present pass, at once when it is idle. @thread any
    virtual void end();

    // Registration never fails loudly: with a full list, or an object that is registered already, it logs and
    // leaves the object as it was. The handler must stay alive until the loop has ended, or be unregistered
    // by the loop's own thread, since a call to it may be under way.

    /// @thread any
    void regQueue(UserEventBase* event, Queue* queue);
    /// @thread any
    void unRegQueue(UserEventBase* event);
    /// @thread any
    void watchReads(UserEventBase* event);
    /// @thread any
    void unWatchReads(UserEventBase* event);
    /// Not from within a pre or post activity handler. @thread any
    void regActivity(UserEventBase* event);
    /// Not from within a pre or post activity handler. @thread any
    void unRegActivity(UserEventBase* event);
    /// `waketime` is absolute, in seconds since the epoch. @thread user, or before begin() and after it
    void regTimer(UserEventBase* event, double waketime) { m_timers.add(event, waketime); }
    void unRegTimer(UserEventBase* event) { m_timers.remove(event); }

    [[nodiscard]] double getCurTime() const noexcept { return m_curLoopTime; }
    [[nodiscard]] int getIndex() const noexcept { return index; }

private:
    void mainLoop();
    [[nodiscard]] int doQPolls(int timeout);
    void serveRounds(int ready);
    [[nodiscard]] UserEventBase* pendingHandler(int i) const noexcept;
    void doPreIO(double curtime);
    void doPostIO(double curtime);

    void addQPoll(UserEventBase* event) TP_REQUIRES(m_queue_mutex);
    void modQPoll(UserEventBase* event) TP_REQUIRES(m_queue_mutex);
    void delQPoll(UserEventBase* event) TP_REQUIRES(m_queue_mutex);
    void clearflagsQPoll(const UserEventBase* event, uint32_t flags);

    /// Taken inside the session's registration locks and outside the leaves.
    static constexpr tp::LockRank kLockQueues{980, "UserEventReactor::m_queue_mutex"};
    static constexpr tp::LockRank kLockActivity{985, "UserEventReactor::m_activity_mutex"};

    std::atomic<int> m_mustExit{0};
    int m_inBurst = 0;
    double m_curLoopTime = 0.0;
    double m_lastLoopTime = 0.0;
    tp::ReactorWait m_wait;

    const std::unique_ptr<QPoll::qpoll_ready[]> m_qpoll_events;
    std::atomic<int> m_qpoll_count{0}; ///< entries of m_qpoll_events being worked off
    const std::unique_ptr<QPoll> m_qpoll;

    tp::Mutex m_queue_mutex{kLockQueues}; ///< guards the list of queues
    int m_queueCount TP_GUARDED_BY(m_queue_mutex) = 0;
    QPoll::pollq m_pollList[maxEvents] TP_GUARDED_BY(m_queue_mutex) = {};
    UserEventBase* m_queues[maxEvents] TP_GUARDED_BY(m_queue_mutex) = {};

    tp::Mutex m_activity_mutex{kLockActivity}; ///< guards the activities, also while they are called
    int m_activityCount TP_GUARDED_BY(m_activity_mutex) = 0;
    UserEventBase* m_activity[maxEvents] TP_GUARDED_BY(m_activity_mutex) = {};

    Timers m_timers;

    const int index;
};

} // namespace tivra_internal
