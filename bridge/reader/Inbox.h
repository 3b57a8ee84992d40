#pragma once

#include "reader/BusSource.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace tivra_bus {

/// A message that an engine has brought.
struct InboxItem {
    unsigned partition = 0;
    std::uint64_t generation = 0; ///< of the consumer that it comes from
    StreamMessage message;
};

/// Hands what comes on the engine's threads to the reader's. Bounded: when it is full, those threads wait,
/// and the engine is read no faster than the handlers are. States of sources have a way of their own, since
/// nobody may be taken for silent whose words wait behind what handlers are slow with.
/// @thread any
class Inbox {
public:
    explicit Inbox(std::size_t capacity) : m_capacity(capacity) {}

    /// Waits for room. What comes after close() is dropped.
    void push(InboxItem&& item) {
        const tp::MutexLock lock(m_mutex);
        while (m_bytes >= m_capacity && !m_isClosed)
            m_room.wait(m_mutex);
        if (m_isClosed)
            return;
        m_bytes += sizeOf(item);
        m_items.push_back(std::move(item));
        m_come.notifyOne();
    }
    /// The state of a source, as it is told again and again: of too many the oldest go.
    void pushStatus(std::string&& status) {
        const tp::MutexLock lock(m_mutex);
        if (m_statuses.size() == kMostStatuses)
            m_statuses.pop_front();
        m_statuses.push_back(std::move(status));
    }
    [[nodiscard]] std::deque<std::string> takeStatuses() {
        const tp::MutexLock lock(m_mutex);
        return std::exchange(m_statuses, {});
    }
    /// Has a take() return.
    void wake() {
        const tp::MutexLock lock(m_mutex);
        m_isWoken = true;
        m_come.notifyOne();
    }
    /// All that waits, or nothing when the time has passed.
    [[nodiscard]] std::deque<InboxItem> take(std::chrono::steady_clock::time_point deadline) {
        const tp::MutexLock lock(m_mutex);
        while (m_items.empty() && !m_isWoken && !m_isClosed && m_come.waitUntil(m_mutex, deadline)) {
        }
        m_isWoken = false;
        return std::exchange(m_items, {});
    }
    /// A taken item has been dealt with.
    void release(const InboxItem& item) {
        const tp::MutexLock lock(m_mutex);
        m_bytes -= sizeOf(item);
        m_room.notifyAll();
    }
    void close() {
        const tp::MutexLock lock(m_mutex);
        m_isClosed = true;
        m_room.notifyAll();
        m_come.notifyAll();
    }
    /// Bytes that wait or are being dealt with.
    [[nodiscard]] std::size_t bytes() const {
        const tp::MutexLock lock(m_mutex);
        return m_bytes;
    }

private:
    static constexpr std::size_t kMostStatuses = 4096;

    static std::size_t sizeOf(const InboxItem& item) { return sizeof item + item.message.bytes.capacity(); }

    const std::size_t m_capacity;
    mutable tp::Mutex m_mutex;
    tp::ConditionVariable m_come;
    tp::ConditionVariable m_room;
    std::deque<InboxItem> m_items TP_GUARDED_BY(m_mutex);
    std::deque<std::string> m_statuses TP_GUARDED_BY(m_mutex);
    std::size_t m_bytes TP_GUARDED_BY(m_mutex) = 0;
    bool m_isWoken TP_GUARDED_BY(m_mutex) = false;
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_bus
