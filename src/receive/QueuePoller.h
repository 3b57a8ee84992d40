#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <tp/Mutex.h>
#include <tp/PollTable.h>

#include "receive/QPoll.h"
#include "receive/UserEventBase.h"

namespace tivra_internal {

/// Waits for receive queues to hold data and calls their handlers. The user thread waits and serves; any
/// thread may add, modify and remove.
class QueuePoller {
public:
    using Event = UserEventBase;
    using Wake = UserEventBase::wake_t;
    using Source = Queue*;
    using Entry = QPoll::pollq;
    using Mutex = tp::Mutex;
    using Lock = tp::MutexLock;
    static constexpr int maxEvents = 1024;
    static constexpr Entry kUnused{nullptr, 0, 0};
    // Taken inside the session's registration locks and outside the leaves.
    static constexpr tp::LockRank kLockSources{980, "UserEventReactor::m_source_mutex"};
    static constexpr tp::LockRank kLockActivity{985, "UserEventReactor::m_activity_mutex"};
    using Table = tp::PollTable<Event, Entry, maxEvents>;

    QueuePoller();
    ~QueuePoller();
    QueuePoller(const QueuePoller&) = delete;
    QueuePoller& operator=(const QueuePoller&) = delete;

    static void reportRefusal(Queue* queue, bool hasQueue);
    void add(const Entry& entry, Event* event);
    void modify(const Entry& entry, Event* event);
    /// An object that leaves during a dispatch gets nothing more from the pending list.
    void remove(const Entry& entry, Event* event);
    void clearPending(const Event* event, uint32_t flags);

    /// The number of queues that hold data, 0 after the time without any or when interrupted.
    [[nodiscard]] int wait(Table&, int milliseconds);
    /// Calls the handlers of those that the last wait found.
    void serve(Table&, double curtime, const std::atomic<int>& mustExit);
    /// Makes the present wait, or the next one, return.
    void interrupt() { m_qpoll.interrupt(); }

private:
    void serveRounds(int ready, double curtime, const std::atomic<int>& mustExit);
    [[nodiscard]] Event* pendingHandler(int i) const noexcept;

    const std::unique_ptr<QPoll::qpoll_ready[]> m_qpoll_events;
    std::atomic<int> m_qpoll_count{0}; ///< entries of m_qpoll_events being worked off
    unsigned m_dispatches = 0;         ///< of several entries; says which takes the first turn
    QPoll m_qpoll{maxEvents};
};

} // namespace tivra_internal
