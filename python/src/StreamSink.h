#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <feed/UpdateQueue.h>
#include <tp/Mutex.h>

#include "Callable.h"
#include "Event.h"
#include "EventQueue.h"
#include "Notifier.h"
#include "RowBuffer.h"

namespace tivra_python {

/// Takes what comes for the subscriptions of one reader: into a queue of events, or, once rows are asked for
/// and nothing may hold up the hub, straight into columns on the thread that delivers. Callbacks of Python
/// hear of everything besides. @thread any, without the interpreter's lock
class StreamSink : public std::enable_shared_from_this<StreamSink> {
public:
    struct Options {
        tivra::QueueOptions queue;
        RowFields fields;  ///< no columns for no rows
        Callable onUpdate; ///< takes the updates, so that no reader gets them
        Callable onState;
        Callable onGap;
    };

    /// @param queue  that what comes goes through
    /// @param toQueue  how a feed puts it there; without it rows are never made on the thread that delivers
    StreamSink(Options options, std::unique_ptr<EventQueue> queue, tivra::SubscriptionHandlers toQueue = {});

    /// For the subscriptions of a feed, which keep the sink.
    [[nodiscard]] tivra::SubscriptionHandlers handlers();
    /// Whether there is a callback of Python for what comes otherwise.
    [[nodiscard]] bool hears(const Event& event) const noexcept {
        return static_cast<bool>(callbackFor(event));
    }
    /// Calls it.
    void call(const Event& event) const;

    /// Nothing more will come: a reader that waits is woken.
    void end() TP_EXCLUDES(m_mutex);
    /// Nothing more will come, and all has been read.
    [[nodiscard]] bool isFinished() TP_EXCLUDES(m_mutex);

    // --- events ---
    [[nodiscard]] EventQueue& queue() noexcept { return *m_queue; }

    // --- rows ---
    /// From now on rows are made. @return how many a batch has at most
    /// @throws tivra::Error (InvalidArgument) without fields
    std::size_t beginRows(std::size_t batchRows) TP_EXCLUDES(m_mutex);
    /// Rows are made on the thread that delivers, and notify() is for them.
    [[nodiscard]] bool isDirect() TP_EXCLUDES(m_mutex);
    /// Moves what waits in the queue into rows, where rows are made so.
    /// @return how many rows wait, or as many as a batch has when one is due; nothing when none does, and no
    /// gap or refusal
    [[nodiscard]] std::optional<std::size_t> gather() TP_EXCLUDES(m_mutex);
    /// Waits for that many rows, or anything, or the end.
    bool waitForRows(std::size_t rows, std::chrono::steady_clock::time_point deadline) TP_EXCLUDES(m_mutex);
    /// Has the notifier told, once. @return whether they are there, and nothing will be told
    bool notify(std::size_t rows, std::shared_ptr<Notifier> notifier, std::uint64_t token)
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] RowBlock takeRows() TP_EXCLUDES(m_mutex);

    /// Rows and events that were dropped for want of room.
    [[nodiscard]] std::uint64_t dropped() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::uint64_t merged() const { return m_queue->figures().merged; }
    [[nodiscard]] std::size_t waiting() TP_EXCLUDES(m_mutex);

private:
    void onUpdate(const tivra::Update& update) TP_EXCLUDES(m_mutex);
    void onState(const tivra::SubscriptionView& subscription, const tivra::StateChange& change)
        TP_EXCLUDES(m_mutex);
    void onGap(const tivra::SubscriptionView& subscription, const tivra::Gap& gap) TP_EXCLUDES(m_mutex);
    [[nodiscard]] const Callable& callbackFor(const Event& event) const noexcept;
    [[nodiscard]] bool canBeDirect() const noexcept;
    void drainQueue() TP_REQUIRES(m_mutex);
    /// What is beyond a batch stays in the queue, which has its own limits.
    void fillBatch() TP_REQUIRES(m_mutex);
    [[nodiscard]] bool areThere(std::size_t rows) const TP_REQUIRES(m_mutex);
    /// A reader who waits for what is there now is told, once. The lock may be given up for it.
    void tell(tp::MutexLock& lock) TP_NO_THREAD_SAFETY_ANALYSIS;

    const Options m_options;
    const std::unique_ptr<EventQueue> m_queue;
    const tivra::SubscriptionHandlers m_toQueue;

    tp::Mutex m_mutex;
    tp::ConditionVariable m_condition;
    std::unique_ptr<RowBuffer> m_rows TP_GUARDED_BY(m_mutex);
    bool m_isDirect TP_GUARDED_BY(m_mutex) = false;
    bool m_hasEnded TP_GUARDED_BY(m_mutex) = false;
    std::size_t m_wanted TP_GUARDED_BY(m_mutex) = 0; ///< rows that somebody waits for; 0 for nobody
    std::shared_ptr<Notifier> m_notifier TP_GUARDED_BY(m_mutex);
    std::uint64_t m_token TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace tivra_python
