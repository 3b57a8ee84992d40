#pragma once

#include "Picture.h"

#include <deque>
#include <mutex>

namespace tivra_top {

/// The last lines of the log, a bounded number of them.
/// @thread any; whoever logs never waits for a screen
class LogTail {
public:
    void add(LogEntry entry) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_entries.size() >= kMost)
            m_entries.pop_front();
        m_entries.push_back(std::move(entry));
    }
    [[nodiscard]] std::vector<LogEntry> entries() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return {m_entries.begin(), m_entries.end()};
    }

private:
    static constexpr std::size_t kMost = 200;

    mutable std::mutex m_mutex;
    std::deque<LogEntry> m_entries;
};

} // namespace tivra_top
