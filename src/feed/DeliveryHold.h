#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include <tp/Mutex.h>

namespace tivra_internal {

class QueueState;

/// Has the threads that deliver for a feed wait for queues that they have filled. They do so between two
/// messages, where they hold nothing that the queue's reader may want. @thread any
class DeliveryHold {
public:
    DeliveryHold() = default;
    DeliveryHold(const DeliveryHold&) = delete;
    DeliveryHold& operator=(const DeliveryHold&) = delete;

    /// This thread has filled the queue.
    static void ask(const std::shared_ptr<QueueState>& queue);
    /// Waits until the queues that this thread has filled have room, are gone, or end() has been called.
    void waitIfAsked() {
        if (t_isAsked)
            wait();
    }
    /// Nobody waits from now on.
    void end() TP_EXCLUDES(m_mutex);

private:
    void wait() TP_EXCLUDES(m_mutex);

    static constinit thread_local bool t_isAsked;

    std::atomic<bool> m_hasEnded{false};
    tp::Mutex m_mutex;
    std::vector<std::shared_ptr<QueueState>> m_waitedFor TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
