#pragma once

#include "LoggerMutex.h"

#include <tp/Process.h>
#include <tp/Thread.h>
#include <tp/logRoute.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <semaphore.h>

namespace tp {

/// Hands lines to a callback on a thread of its own, in order. Whoever logs waits for nobody: a queue that is
/// full loses lines and counts them.
class LogDelivery {
public:
    explicit LogDelivery(LogCallback callback);
    ~LogDelivery();
    LogDelivery(const LogDelivery&) = delete;
    LogDelivery& operator=(const LogDelivery&) = delete;

    void put(int level, int area, const char* text, std::size_t length) noexcept TP_REQUIRES(eprintf_mutex);
    /// What waits is delivered, and then it goes: at once, or by itself where this is called inside the
    /// callback.
    static void end(LogDelivery* delivery) TP_EXCLUDES(eprintf_mutex);
    /// This thread is in a callback.
    [[nodiscard]] static bool isInCallback() noexcept;

private:
    static constexpr std::size_t kMostLines = 1024;

    void loop() TP_EXCLUDES(eprintf_mutex);
    [[nodiscard]] bool take(LogRecord& record) TP_REQUIRES(eprintf_mutex);
    void call(const LogRecord& record);

    const LogCallback m_callback;
    const ProcessMark m_process; ///< a forked child has no thread
    sem_t m_wake;                ///< posted for each line, and for the end

    // Under the logger's mutex.
    std::array<LogRecord, kMostLines> m_lines TP_GUARDED_BY(eprintf_mutex);
    std::size_t m_first TP_GUARDED_BY(eprintf_mutex) = 0;
    std::size_t m_count TP_GUARDED_BY(eprintf_mutex) = 0;
    std::uint64_t m_lost TP_GUARDED_BY(eprintf_mutex) = 0;
    bool m_isEnding TP_GUARDED_BY(eprintf_mutex) = false;
    bool m_isOrphan TP_GUARDED_BY(eprintf_mutex) = false; ///< its thread destroys it

    Thread m_thread; ///< the last member: it uses the others
};

} // namespace tp
