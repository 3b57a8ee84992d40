#include <feed/UpdateQueue.h>

#include <algorithm>
#include <utility>

#include "feed/QueueInlet.h"
#include "feed/QueueState.h"
#include "feed/SubscriptionState.h"

namespace tivra {
namespace {

using tivra_internal::QueueInlet;
using tivra_internal::QueueNode;
using tivra_internal::QueueState;
using tivra_internal::SubscriptionState;

/// A handler that puts what it is called with into a queue, for any number of subscriptions.
class Feeder {
public:
    explicit Feeder(std::shared_ptr<QueueState> queue) : m_queue(std::move(queue)) {}

    void operator()(const Update& update) const {
        const tivra_internal::UpdateData& data = tivra_internal::UpdateData::of(update);
        m_queue->push(laneOf(*data.subscription), data);
    }
    template<class Notice>
    void operator()(const SubscriptionView& subscription, const Notice& notice) const {
        m_queue->push(laneOf(SubscriptionState::of(subscription)), notice);
    }

private:
    [[nodiscard]] tivra_internal::QueueLane& laneOf(SubscriptionState& subscription) const {
        tivra_internal::Attachment* inlet = subscription.attachmentOf(m_queue.get());
        if (inlet == nullptr)
            inlet = &subscription.attach(std::make_unique<QueueInlet>(m_queue, subscription.view()));
        return static_cast<QueueInlet*>(inlet)->lane();
    }

    std::shared_ptr<QueueState> m_queue;
};

[[nodiscard]] QueueEvent eventOf(const QueueNode& node) {
    QueueEvent event;
    event.kind = node.kind;
    event.subscription = node.subscription;
    event.source = node.source;
    event.record = node.record;
    if (node.notice != nullptr) {
        event.symbol = node.notice->symbol;
        event.state = node.kind == QueueEvent::Kind::State ? &node.notice->state : nullptr;
        event.gap = node.kind == QueueEvent::Kind::Gap ? &node.notice->gap : nullptr;
    } else {
        event.symbol = node.record.symbol();
    }
    event.time = node.time;
    event.dropped = node.dropped;
    event.droppedBytes = node.droppedBytes;
    event.merged = node.merged;
    return event;
}

} // namespace

UpdateQueue::UpdateQueue(QueueOptions options) : m_state(std::make_shared<QueueState>(options)) {}

UpdateQueue::UpdateQueue(UpdateQueue&&) noexcept = default;

UpdateQueue& UpdateQueue::operator=(UpdateQueue&& other) noexcept {
    if (this != &other) {
        const UpdateQueue old(std::move(*this));
        m_state = std::move(other.m_state);
    }
    return *this;
}

UpdateQueue::~UpdateQueue() {
    if (m_state != nullptr)
        m_state->close();
}

SubscriptionHandlers UpdateQueue::handlers() const {
    SubscriptionHandlers handlers;
    if (m_state == nullptr)
        return handlers;
    handlers.onUpdate = Feeder(m_state);
    handlers.onState = Feeder(m_state);
    handlers.onGap = Feeder(m_state);
    return handlers;
}

std::size_t UpdateQueue::poll(std::size_t max, const Handler& handler) {
    const std::shared_ptr<QueueState> state = m_state; // the handler may end this object
    std::size_t count = 0;
    while (state != nullptr && count < max) {
        const std::unique_ptr<QueueNode> node = state->take();
        if (node == nullptr)
            break;
        ++count;
        handler(eventOf(*node));
    }
    return count;
}

bool UpdateQueue::wait(std::chrono::nanoseconds timeout) const {
    constexpr std::chrono::nanoseconds kLongest = std::chrono::hours(24 * 365);
    return m_state != nullptr &&
           m_state->wait(std::chrono::steady_clock::now() + std::min(timeout, kLongest));
}

int UpdateQueue::descriptor() const {
    return m_state != nullptr ? m_state->descriptor() : -1;
}

QueueStatistics UpdateQueue::statistics() const {
    return m_state != nullptr ? m_state->statistics() : QueueStatistics();
}

std::vector<QueueCounts> UpdateQueue::counts() const {
    return m_state != nullptr ? m_state->counts() : std::vector<QueueCounts>();
}

} // namespace tivra
