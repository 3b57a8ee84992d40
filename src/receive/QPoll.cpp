#include "receive/QPoll.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <poll.h>

#include <tp/eprintf.h>

#include "receive/Queue.h"
#include "receive/QueueWaker.h"

namespace tivra_internal {

QPoll::QPoll(int capacity)
    : m_capacity(capacity)
    , m_waker(std::make_shared<QueueWaker>())
    , m_qpoll_qd(std::make_unique<qpoll_info[]>(static_cast<std::size_t>(capacity))) {}

QPoll::~QPoll() = default;

QPoll::qpoll_info* QPoll::find(const Queue* q) {
    qpoll_info* const end = m_qpoll_qd.get() + num_qds;
    qpoll_info* const entry =
        std::find_if(m_qpoll_qd.get(), end, [q](const qpoll_info& info) { return info.queue == q; });
    return entry != end ? entry : nullptr;
}

int QPoll::qpoll_ctl(int op, Queue* q, const qpoll_event* ev) {
    tp::MutexLock lock(qpoll_mutex);
    qpoll_info* const entry = find(q);
    switch (op) {
    case QPOLL_CTL_ADD:
        if (entry != nullptr) {
            eprintf(
                EPF_CRIT,
                "qpoll_ctl: op was QPOLL_CTL_ADD, and the supplied queue pointer %p already is registered",
                static_cast<void*>(q));
            errno = EEXIST;
            return -1;
        }
        if (num_qds == m_capacity) {
            eprintf(EPF_CRIT, "qpoll_ctl: op was QPOLL_CTL_ADD, and all %d entries are in use", m_capacity);
            errno = ENOSPC;
            return -1;
        }
        m_qpoll_qd[static_cast<std::size_t>(num_qds++)] = {q, *ev};
        q->setWaker(m_waker);
        // It may hold data already.
        m_waker->wake();
        return 0;
    case QPOLL_CTL_MOD:
        if (entry == nullptr) {
            eprintf(EPF_CRIT,
                    "qpoll_ctl: op was QPOLL_CTL_MOD, and the supplied queue pointer %p is not registered",
                    static_cast<void*>(q));
            errno = ENOENT;
            return -1;
        }
        entry->events = *ev;
        // What became wanted may have been waiting.
        m_waker->wake();
        return 0;
    case QPOLL_CTL_DEL:
        if (entry == nullptr) {
            eprintf(EPF_CRIT,
                    "qpoll_ctl: op was QPOLL_CTL_DEL, and the supplied queue pointer %p is not registered",
                    static_cast<void*>(q));
            errno = ENOENT;
            return -1;
        }
        std::copy(entry + 1, m_qpoll_qd.get() + num_qds, entry);
        --num_qds;
        q->setWaker(nullptr);
        return 0;
    default:
        eprintf(EPF_CRIT, "qpoll_ctl: bad op %d", op);
        return 0;
    }
}

int QPoll::scan(qpoll_ready* out, Scan kind) {
    tp::MutexLock lock(qpoll_mutex);
    int n = 0;
    for (int i = 0; i < num_qds; ++i) {
        const qpoll_info& info = m_qpoll_qd[static_cast<std::size_t>(i)];
        if ((info.events.events & POLLIN) == 0)
            continue;
        if (kind == Scan::Plain ? info.queue->isServed() : info.queue->isServedBeforeSleep())
            continue;
        qpoll_ready& ready = out[n++];
        ready.data.store(info.events.data, std::memory_order_relaxed);
        ready.events.store(ready.events.load(std::memory_order_relaxed) | POLLIN, std::memory_order_release);
    }
    return n;
}

int QPoll::qpoll_wait(qpoll_ready* out, int /*maxevents*/, int timeoutMs) {
    int n = scan(out, Scan::Plain);
    if (n > 0 || timeoutMs <= 0)
        return n;
    // Announced first and looked at again: what comes in after that look ends the wait.
    m_waker->announceIdle();
    n = scan(out, Scan::Final);
    if (n > 0 || m_interrupted.exchange(false)) {
        m_waker->cancelIdle();
        return n;
    }
    m_waker->wait(std::chrono::milliseconds(timeoutMs));
    return scan(out, Scan::Plain);
}

void QPoll::interrupt() {
    m_interrupted.store(true);
    m_waker->wake();
}

} // namespace tivra_internal
