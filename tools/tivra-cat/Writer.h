#pragma once

#include "OutputFormat.h"
#include "RecordQueue.h"
#include "Wakeup.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace tivra_cat {

/// The thread that turns records into text and writes it to a descriptor, so that a slow terminal or pipe
/// never holds up a callback.
class Writer {
public:
    /// Starts at once; `fd` stays the caller's.
    Writer(RecordQueue& queue, std::unique_ptr<OutputFormat> format, int fd, const Wakeup& wakeup);
    /// Closes the queue and waits until all of it has been written.
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Whether all was written, or writing failed, and the thread has nothing left to do.
    [[nodiscard]] bool isFinished() const { return m_isFinished.load(); }
    /// The errno of a failed write, 0 while all goes well.
    [[nodiscard]] int error() const { return m_error.load(); }

private:
    void run();
    void flush(std::string& text);

    RecordQueue& m_queue;
    const std::unique_ptr<OutputFormat> m_format;
    const int m_fd;
    const Wakeup& m_wakeup;
    std::atomic<int> m_error{0};
    std::atomic<bool> m_isFinished{false};
    std::thread m_thread; ///< the last member: it uses all the others
};

} // namespace tivra_cat
