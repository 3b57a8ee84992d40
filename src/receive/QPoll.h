#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <tp/Mutex.h>

namespace tivra_internal {

class Queue;
class QueueWaker;
class UserEventBase;

/// A poll over receive queues with the interface of epoll: it scans them for data, and when there is none it
/// sleeps until a producer wakes it. The user thread waits; any thread may change the table. It borrows the
/// queues.
class QPoll {
public:
    enum QPollOperations { QPOLL_CTL_ADD = 0, QPOLL_CTL_MOD = 1, QPOLL_CTL_DEL = 2 };

    /// One entry of a reactor's own list.
    struct pollq {
        Queue* q;
        short events;
        short revents;
    };
    /// What is wanted of a queue, and the handler to name when it is ready.
    struct qpoll_event {
        uint32_t events;
        UserEventBase* data;
    };
    struct qpoll_info {
        Queue* queue;
        qpoll_event events;
    };
    /// A ready queue. Another thread may clear it while the list is being worked off.
    struct qpoll_ready {
        std::atomic<uint32_t> events{0};
        std::atomic<UserEventBase*> data{nullptr};
    };

    explicit QPoll(int capacity);
    ~QPoll();
    QPoll(const QPoll&) = delete;
    QPoll& operator=(const QPoll&) = delete;

    /// Adds, changes or removes a queue; -1 with errno set when that isn't possible. `ev` is not read by
    /// QPOLL_CTL_DEL. @thread any
    int qpoll_ctl(int op, Queue* q, const qpoll_event* ev);

    /// Fills `out`, which has room for the whole table, with the queues that hold data. Returns their number,
    /// 0 when it was interrupted or woken for nothing, and after `timeoutMs` without data. @thread user
    [[nodiscard]] int qpoll_wait(qpoll_ready* out, int maxevents, int timeoutMs);

    /// Makes the present wait, or the next one, return. @thread any
    void interrupt();

private:
    enum class Scan { Plain, Final };

    [[nodiscard]] int scan(qpoll_ready* out, Scan kind);
    [[nodiscard]] qpoll_info* find(const Queue* q) TP_REQUIRES(qpoll_mutex);

    /// Outside a queue's own mutexes, which are leaves.
    static constexpr tp::LockRank kLockTable{990, "QPoll::qpoll_mutex"};

    const int m_capacity;
    const std::shared_ptr<QueueWaker> m_waker; ///< shared with the queues, which may outlive the poll
    std::atomic<bool> m_interrupted{false};

    tp::Mutex qpoll_mutex{kLockTable}; ///< guards the table
    const std::unique_ptr<qpoll_info[]> m_qpoll_qd TP_GUARDED_BY(qpoll_mutex);
    int num_qds TP_GUARDED_BY(qpoll_mutex) = 0;
};

} // namespace tivra_internal
