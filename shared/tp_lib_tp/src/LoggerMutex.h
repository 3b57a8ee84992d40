#pragma once

#include "BoundedText.h"

#include <tp/Mutex.h>

#include <pthread.h>
#include <type_traits>

namespace tp {

/// The logger's own lock. Not a tp::Mutex: it must be repairable in place, it may be taken while any other
/// mutex is held, and nothing is ever taken under it.
class TP_CAPABILITY("mutex") LoggerMutex {
public:
    [[nodiscard]] int tryToLock() noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
        return pthread_mutex_lock(&m_native);
    }
    void nowLocked() const noexcept TP_ASSERT_CAPABILITY(this) {}
    void unlock() noexcept TP_RELEASE() { pthread_mutex_unlock(&m_native); }
    void reinitialize() noexcept { m_native = PTHREAD_MUTEX_INITIALIZER; }
    [[nodiscard]] const pthread_mutex_t& native() const noexcept { return m_native; }

private:
    pthread_mutex_t m_native = PTHREAD_MUTEX_INITIALIZER;
};

// Threads may still log while a host's static destructors run.
static_assert(std::is_trivially_destructible_v<LoggerMutex>);

/// Guards the state of the logger's other files, which each say so.
extern LoggerMutex eprintf_mutex;

/// A logger must not die of the program's memory faults: a mutex that was overwritten is made anew.
void real_eprintf_lock() noexcept TP_ACQUIRE(eprintf_mutex);

/// Holds eprintf_mutex for a scope.
class TP_SCOPED_CAPABILITY LoggerLock {
public:
    LoggerLock() noexcept TP_ACQUIRE(eprintf_mutex);
    ~LoggerLock() TP_RELEASE() { eprintf_mutex.unlock(); }
    LoggerLock(const LoggerLock&) = delete;
    LoggerLock& operator=(const LoggerLock&) = delete;
};

void dumpMutex(BoundedText& text) noexcept;

} // namespace tp
