#include "feed/DeliveryHold.h"

#include <algorithm>
#include <utility>

#include "feed/QueueState.h"

namespace tivra_internal {
namespace {

thread_local std::vector<std::shared_ptr<QueueState>> t_filled;

} // namespace

constinit thread_local bool DeliveryHold::t_isAsked = false;

void DeliveryHold::ask(const std::shared_ptr<QueueState>& queue) {
    if (std::find(t_filled.begin(), t_filled.end(), queue) == t_filled.end())
        t_filled.push_back(queue);
    t_isAsked = true;
}

void DeliveryHold::wait() {
    t_isAsked = false;
    for (const std::shared_ptr<QueueState>& queue : std::exchange(t_filled, {})) {
        {
            const tp::MutexLock lock(m_mutex);
            m_waitedFor.push_back(queue);
        }
        queue->waitForRoom(m_hasEnded);
        const tp::MutexLock lock(m_mutex);
        m_waitedFor.erase(std::find(m_waitedFor.begin(), m_waitedFor.end(), queue));
    }
}

void DeliveryHold::end() {
    m_hasEnded.store(true, std::memory_order_release);
    std::vector<std::shared_ptr<QueueState>> queues;
    {
        const tp::MutexLock lock(m_mutex);
        queues = m_waitedFor;
    }
    for (const std::shared_ptr<QueueState>& queue : queues)
        queue->wakeDeliveries();
}

} // namespace tivra_internal
