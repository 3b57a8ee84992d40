#pragma once

#include <memory>
#include <utility>

#include <feed/Subscription.h>

#include "feed/Attachment.h"
#include "feed/QueueState.h"

namespace tivra_internal {

/// One subscription's way into a queue, which has the last state of the subscription once this has ended.
class QueueInlet final : public Attachment {
public:
    QueueInlet(std::shared_ptr<QueueState> queue, const tivra::SubscriptionView& subscription)
        : Attachment(queue.get()), m_queue(std::move(queue)), m_lane(&m_queue->enter(subscription)) {}
    ~QueueInlet() override { QueueInlet::end(); }

    void end() noexcept override {
        if (QueueLane* const lane = std::exchange(m_lane, nullptr))
            m_queue->leave(*lane);
    }
    /// Before end().
    [[nodiscard]] QueueLane& lane() noexcept { return *m_lane; }

private:
    const std::shared_ptr<QueueState> m_queue;
    QueueLane* m_lane; ///< the queue keeps it until end(); null after that
};

} // namespace tivra_internal
