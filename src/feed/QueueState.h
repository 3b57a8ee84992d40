#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <feed/UpdateQueue.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "LockOrder.h"

#include "feed/LinkedList.h"
#include "feed/QueueLane.h"
#include "feed/ReadyDescriptor.h"
#include "feed/UpdateData.h"

namespace tivra_internal {

/// What is behind an UpdateQueue: the events in their order, and what is known of each subscription. The
/// handlers that feed it share it. @thread any
class QueueState : public std::enable_shared_from_this<QueueState>, public tp::OfOneProcess {
public:
    /// @throws tivra::Error (InvalidArgument)
    explicit QueueState(tivra::QueueOptions options);
    ~QueueState();
    QueueState(const QueueState&) = delete;
    QueueState& operator=(const QueueState&) = delete;

    // --- what handlers bring ---
    /// What is known of a subscription that is new here, until leave().
    [[nodiscard]] QueueLane& enter(const tivra::SubscriptionView& subscription) TP_EXCLUDES(m_mutex);
    void push(QueueLane& lane, const UpdateData& data) TP_EXCLUDES(m_mutex);
    void push(QueueLane& lane, const tivra::StateChange& change) TP_EXCLUDES(m_mutex);
    void push(QueueLane& lane, const tivra::Gap& gap) TP_EXCLUDES(m_mutex);
    /// The subscription has ended. Nobody waits for room once all have.
    void leave(QueueLane& lane) TP_EXCLUDES(m_mutex);
    void waitForRoom(const std::atomic<bool>& isOver) TP_EXCLUDES(m_mutex);
    void wakeDeliveries() TP_EXCLUDES(m_mutex);

    // --- what the application asks; see UpdateQueue ---
    /// The oldest event, null when there is none.
    [[nodiscard]] std::unique_ptr<QueueNode> take() TP_EXCLUDES(m_mutex);
    [[nodiscard]] bool wait(std::chrono::steady_clock::time_point deadline) TP_EXCLUDES(m_mutex);
    [[nodiscard]] int descriptor() TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::QueueStatistics statistics() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<tivra::QueueCounts> counts() TP_EXCLUDES(m_mutex);
    /// The application's object goes: nothing is kept from now on.
    void close() TP_EXCLUDES(m_mutex);

private:
    [[nodiscard]] bool isLatest() const noexcept { return m_options.policy == tivra::QueuePolicy::Latest; }
    /// So that whoever has filled it has to wait.
    [[nodiscard]] bool isFull() const noexcept TP_REQUIRES(m_mutex);
    [[nodiscard]] bool isOverfull() const noexcept TP_REQUIRES(m_mutex);
    [[nodiscard]] bool hasRoom() const noexcept TP_REQUIRES(m_mutex);
    /// False when the symbol has nothing that this could go into.
    [[nodiscard]] bool merge(QueueLane& lane, QueueSymbol& symbol, const UpdateData& data)
        TP_REQUIRES(m_mutex);
    void append(std::unique_ptr<QueueNode> node) TP_REQUIRES(m_mutex);
    /// Out of all lists.
    [[nodiscard]] std::unique_ptr<QueueNode> remove(QueueNode& node) TP_REQUIRES(m_mutex);
    void dropOldest() TP_REQUIRES(m_mutex);
    void countDropped(const QueueNode& node) TP_REQUIRES(m_mutex);
    void pushState(QueueLane& lane, const tivra::StateChange& change) TP_REQUIRES(m_mutex);
    /// False when it stands by itself.
    [[nodiscard]] bool mergeGap(QueueLane& lane, const tivra::Gap& gap) TP_REQUIRES(m_mutex);
    void dropAfter(QueueNode& gap) TP_REQUIRES(m_mutex);
    void forgetIfIdle(QueueLane& lane) TP_REQUIRES(m_mutex);
    void signal() TP_REQUIRES(m_mutex);

    const tivra::QueueOptions m_options;

    tp::Mutex m_mutex{kLockUpdateQueue}; ///< guards what follows, and lanes and nodes with it
    tp::ConditionVariable m_hasEvents;
    tp::ConditionVariable m_hasRoom;
    ReadyDescriptor m_descriptor TP_GUARDED_BY(m_mutex);
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
    std::size_t m_readers TP_GUARDED_BY(m_mutex) = 0; ///< that wait
    LinkedList<QueueNode, &QueueNode::inQueue> m_events TP_GUARDED_BY(m_mutex);
    QueueNode* m_oldestUpdate TP_GUARDED_BY(m_mutex) = nullptr; ///< no update is older; null for none
    std::unordered_map<std::uint64_t, std::unique_ptr<QueueLane>> m_lanes TP_GUARDED_BY(m_mutex);
    std::size_t m_openLanes TP_GUARDED_BY(m_mutex) = 0;
    tivra::QueueStatistics m_figures TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
