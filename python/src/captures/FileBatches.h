#pragma once

#include "captures/MessageBatches.h"
#include "columns/RowBatch.h"

#include <tp/Mutex.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tivra_python {

/// The batches of one file, as Python iterates over them: threads may take turns.
class FileBatches {
public:
    FileBatches(std::unique_ptr<MessageBatches> batches, bool isComplete)
        : m_batches(std::move(batches)), m_isComplete(isComplete) {}

    /// The next batch and the notes among its rows; none behind the last.
    std::pair<std::shared_ptr<RowBatch>, std::vector<RecordedNote>> next(const Pause& pause) {
        const tp::MutexLock lock(m_mutex);
        std::shared_ptr<RowBatch> batch = m_batches->next(pause);
        return {std::move(batch), m_batches->takeNotes()};
    }
    /// Notes that no batch has come with: those in front of a fault of the file.
    std::vector<RecordedNote> takeNotes() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->takeNotes();
    }
    [[nodiscard]] bool isComplete() const { return m_isComplete; }
    [[nodiscard]] std::uint64_t messages() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->messages();
    }
    [[nodiscard]] std::uint64_t damages() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->damages();
    }
    [[nodiscard]] std::string firstDamage() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->firstDamage();
    }
    [[nodiscard]] std::uint64_t unreadable() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->unreadable();
    }
    [[nodiscard]] std::string firstUnreadable() {
        const tp::MutexLock lock(m_mutex);
        return m_batches->firstUnreadable();
    }

private:
    tp::Mutex m_mutex;
    const std::unique_ptr<MessageBatches> m_batches TP_PT_GUARDED_BY(m_mutex);
    const bool m_isComplete;
};

} // namespace tivra_python
