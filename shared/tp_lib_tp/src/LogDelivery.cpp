#include "LogDelivery.h"

#include "BoundedText.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include <cerrno>
#include <exception>
#include <utility>

#include <cxxabi.h>

namespace tp {

namespace {

thread_local bool t_isInCallback = false;

} // namespace

LogDelivery::LogDelivery(LogCallback callback) : m_callback(std::move(callback)) {
    sem_init(&m_wake, 0, 0);
    m_thread = Thread("tivra-log", [this] { loop(); });
}

LogDelivery::~LogDelivery() {
    m_thread.join();
    sem_destroy(&m_wake);
}

bool LogDelivery::isInCallback() noexcept {
    return t_isInCallback;
}

void LogDelivery::end(LogDelivery* delivery) {
    if (delivery->m_process.isForeign())
        return; // its thread is in the parent
    const bool isOwnThread = delivery->m_thread.isCurrent();
    {
        const LoggerLock lock;
        delivery->m_isEnding = true;
        delivery->m_isOrphan = isOwnThread;
    }
    sem_post(&delivery->m_wake);
    if (!isOwnThread)
        delete delivery;
}

void LogDelivery::put(int level, int area, const char* text, std::size_t length) noexcept {
    if (m_process.isForeign())
        return;
    if (m_count == kMostLines) {
        ++m_lost;
        return;
    }
    LogRecord& record = m_lines[(m_first + m_count) % kMostLines];
    try {
        record.text.assign(text, length);
    } catch (const std::exception&) {
        ++m_lost;
        return;
    }
    record.level = level;
    record.area = area;
    record.time = Clock::now();
    ++m_count;
    sem_post(&m_wake);
}

bool LogDelivery::take(LogRecord& record) {
    if (m_count == 0)
        return false;
    std::swap(record, m_lines[m_first]);
    m_first = (m_first + 1) % kMostLines;
    --m_count;
    return true;
}

void LogDelivery::loop() {
    LogRecord record;
    for (bool isEnding = false; !isEnding;) {
        while (sem_wait(&m_wake) != 0 && errno == EINTR) {
        }
        std::uint64_t lost = 0;
        bool isLine = true;
        while (isLine) {
            {
                const LoggerLock lock;
                isLine = take(record);
                isEnding = !isLine && m_isEnding;
                lost = isLine ? 0 : std::exchange(m_lost, 0);
            }
            if (isLine)
                call(record);
        }
        if (lost != 0)
            call({EPF_WARN, 0, Clock::now(),
                  std::to_string(lost) + " lines are lost: the callback of the log is too slow"});
    }
    bool isOrphan = false;
    {
        const LoggerLock lock;
        isOrphan = m_isOrphan;
    }
    if (isOrphan)
        delete this;
}

void LogDelivery::call(const LogRecord& record) {
    t_isInCallback = true;
    try {
        m_callback(record);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) { // NOLINT(bugprone-empty-catch): to log it would call it again
    }
    t_isInCallback = false;
}

} // namespace tp
