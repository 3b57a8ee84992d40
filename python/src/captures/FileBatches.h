#pragma once

#include "captures/MessageBatches.h"
#include "columns/RowBatch.h"

#include <tp/Mutex.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tivra_python {

/// What is known of a file by the end of the last batch.
struct FileFigures {
    std::uint64_t messages = 0;
    std::uint64_t damages = 0;
    std::string firstDamage;
    std::uint64_t unreadable = 0;
    std::string firstUnreadable;
};

/// Before that of the figures.
inline constexpr tp::LockRank kLockReading{900, "FileBatches::m_mutex"};

/// The batches of one file, as Python iterates over them: threads may take turns. None of the interpreter's
/// may wait for a turn with the interpreter's lock, which a pause of the reader needs.
class FileBatches {
public:
    FileBatches(std::unique_ptr<MessageBatches> batches, bool isComplete)
        : m_batches(std::move(batches)), m_isComplete(isComplete) {}

    /// The next batch and the notes among its rows; none behind the last. Without the interpreter's lock.
    /// Throws std::logic_error inside `pause`.
    std::pair<std::shared_ptr<RowBatch>, std::vector<RecordedNote>> next(const Pause& pause) {
        const Turn turn(*this);
        std::shared_ptr<RowBatch> batch = m_batches->next(pause);
        return {std::move(batch), m_batches->takeNotes()};
    }
    /// Notes that no batch has come with: those in front of a fault of the file. As next().
    std::vector<RecordedNote> takeNotes() {
        const Turn turn(*this);
        return m_batches->takeNotes();
    }
    [[nodiscard]] bool isComplete() const { return m_isComplete; }
    /// Never waits for a reader.
    [[nodiscard]] FileFigures figures() {
        const tp::MutexLock lock(m_figuresMutex);
        return m_figures;
    }

private:
    /// The right to read on, and then the figures of what has been read.
    class TP_SCOPED_CAPABILITY Turn {
    public:
        explicit Turn(FileBatches& file) TP_ACQUIRE(file.m_mutex) : m_file(file) {
            if (m_file.m_reader.load() == std::this_thread::get_id())
                throw std::logic_error("a signal handler can't read on in the file that it has interrupted");
            m_file.m_mutex.lock();
            m_file.m_reader = std::this_thread::get_id();
        }
        ~Turn() TP_RELEASE() {
            m_file.noteFigures();
            m_file.m_reader = std::thread::id();
            m_file.m_mutex.unlock();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        FileBatches& m_file;
    };

    void noteFigures() TP_REQUIRES(m_mutex) {
        FileFigures figures{m_batches->messages(), m_batches->damages(), m_batches->firstDamage(),
                            m_batches->unreadable(), m_batches->firstUnreadable()};
        const tp::MutexLock lock(m_figuresMutex);
        m_figures = std::move(figures);
    }

    tp::Mutex m_mutex{kLockReading}; ///< held while the file is read
    const std::unique_ptr<MessageBatches> m_batches TP_PT_GUARDED_BY(m_mutex);
    std::atomic<std::thread::id> m_reader{}; ///< the thread that has the turn
    const bool m_isComplete;

    tp::Mutex m_figuresMutex; ///< after m_mutex, and held for a moment
    FileFigures m_figures TP_GUARDED_BY(m_figuresMutex);
};

} // namespace tivra_python
