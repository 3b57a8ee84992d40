#pragma once

#include "Record.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace tivra_cat {

/// Hands records from the callbacks to the writer. Bounded: when the writer falls behind, records are refused
/// and the callbacks never wait.
class RecordQueue {
public:
    explicit RecordQueue(std::size_t capacity) : m_capacity(capacity) {}

    /// @return false when it is full or closed and the record was dropped. @thread user
    [[nodiscard]] bool push(Record&& record) {
        bool wasEmpty = false;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_isClosed || m_waiting.size() >= m_capacity)
                return false;
            wasEmpty = m_waiting.empty();
            m_waiting.push_back(std::move(record));
        }
        if (wasEmpty)
            m_changed.notify_one();
        return true;
    }

    /// Ends the flow; what waits is still handed out. @thread application
    void close() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isClosed = true;
        m_changed.notify_one();
    }

    /// Takes all that waits, for which it waits until `deadline` at most.
    /// @return false when it is closed and empty, for good. @thread writer
    [[nodiscard]] bool take(std::vector<Record>& records, std::chrono::steady_clock::time_point deadline) {
        records.clear();
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_until(lock, deadline, [this] { return m_isClosed || !m_waiting.empty(); });
        records.swap(m_waiting);
        return !records.empty() || !m_isClosed;
    }

private:
    const std::size_t m_capacity;
    std::mutex m_mutex; ///< guards all below
    std::condition_variable m_changed;
    std::vector<Record> m_waiting;
    bool m_isClosed = false;
};

} // namespace tivra_cat
