#pragma once

#include "RecordTarget.h"
#include "Wakeup.h"

#include <capture/CaptureNote.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tivra_cat {

/// Writes messages as they came into a file, on a thread of its own. Bounded: when the disk falls behind,
/// messages are refused and the callbacks never wait for it.
class Recorder {
public:
    /// Opens the file, in place of one that is there, and starts at once. At most `capacity` messages wait.
    /// Throws Failure when the file can't be written.
    Recorder(const std::string& path, RecordTarget::Form form, std::size_t capacity, const Wakeup& wakeup);
    /// Closes it and waits until all has been written.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Notes a message with the present time; it is counted as dropped when there is no room. @thread user
    void add(std::string_view body);
    /// The same for a note, which takes no room that a message could have had. @thread user
    void add(const tivra_capture::Note& note);
    /// Takes nothing more; what waits is written and the file ended. @thread application
    void close();

    /// Whether all was written, or writing failed, and the thread has nothing left to do.
    [[nodiscard]] bool isFinished() const { return m_isFinished.load(); }
    [[nodiscard]] bool hasFailed() const { return m_hasFailed.load(); }
    /// Why it has failed; complete once it has.
    [[nodiscard]] const std::string& error() const { return m_error; }
    [[nodiscard]] std::uint64_t dropped() const { return m_dropped.load(); }
    /// Messages in the file; complete once it is finished.
    [[nodiscard]] std::uint64_t written() const { return m_written; }
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    /// Messages one behind the other, their lengths and times beside them.
    struct Batch {
        struct Entry {
            std::int64_t nanoseconds = 0;
            std::size_t length = 0;
        };
        std::vector<Entry> entries;
        std::string bodies;
    };

    /// Puts a body behind the others. m_mutex is held.
    void append(std::string_view body);
    /// Notes what was dropped since the last that was taken. m_mutex is held.
    void noteDropped();
    void run();
    void writeAll();
    [[nodiscard]] bool take(Batch& batch);
    void write(const Batch& batch);

    const RecordTarget::Form m_form;
    const std::size_t m_capacity;
    const Wakeup& m_wakeup;
    const std::string m_path;
    const std::unique_ptr<RecordTarget> m_target;
    std::mutex m_mutex; ///< guards the next five
    std::condition_variable m_changed;
    Batch m_waiting;
    bool m_isClosed = false;
    std::uint64_t m_droppedSince = 0; ///< messages, since the last that was taken
    std::size_t m_waitingNotes = 0;
    std::uint64_t m_written = 0; ///< messages in the file; the recorder's thread
    std::atomic<std::uint64_t> m_dropped{0};
    std::string m_error;
    std::atomic<bool> m_hasFailed{false};
    std::atomic<bool> m_isFinished{false};
    std::thread m_thread; ///< the last member: it uses all the others
};

} // namespace tivra_cat
