#pragma once

#include <feed/UpdateQueue.h>

#include "EventQueue.h"

namespace tivra_python {

/// The library's queue for the subscriptions of a feed. @thread any
class FeedQueue : public EventQueue {
public:
    /// @throws tivra::Error (InvalidArgument)
    explicit FeedQueue(const tivra::QueueOptions& options) : m_queue(options) {}

    /// Put events into it.
    [[nodiscard]] tivra::SubscriptionHandlers handlers() const { return m_queue.handlers(); }

    std::size_t poll(std::size_t most, const Handler& handler) override {
        return m_queue.poll(most,
                            [&handler](const tivra::QueueEvent& event) { handler(Event::ofQueue(event)); });
    }
    bool wait(std::chrono::nanoseconds timeout) override { return m_queue.wait(timeout); }
    [[nodiscard]] int descriptor() override { return m_queue.descriptor(); }
    [[nodiscard]] EventQueueFigures figures() const override {
        const tivra::QueueStatistics statistics = m_queue.statistics();
        return {statistics.events, statistics.updates, statistics.dropped, statistics.merged};
    }

private:
    tivra::UpdateQueue m_queue;
};

} // namespace tivra_python
