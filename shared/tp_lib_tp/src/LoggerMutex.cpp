#include "LoggerMutex.h"

#include "LogSinks.h"
#include "RepeatTable.h"

#include <cstring>

namespace tp {

constinit LoggerMutex eprintf_mutex;

namespace {

void lockBeforeFork() noexcept TP_ACQUIRE(eprintf_mutex) {
    real_eprintf_lock();
}

void unlockAfterFork() noexcept TP_RELEASE(eprintf_mutex) {
    eprintf_mutex.unlock();
}

// A child that is forked while another thread logs must not inherit a lock that nobody will release.
void registerForkHandlers() noexcept {
    pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork);
}

} // namespace

void real_eprintf_lock() noexcept {
    const int error = eprintf_mutex.tryToLock();
    eprintf_mutex.nowLocked();
    if (error == 0)
        return;
    char contents[sizeof(pthread_mutex_t) + 1] = {};
    std::memcpy(contents, &eprintf_mutex.native(), sizeof(pthread_mutex_t));
    internal_errorf("%s() = %d %s, eprintf_mutex corrupted, contained \"%s\", count=%zu, reinitialized\n",
                    __func__, error, std::strerror(error), contents, repeatCount());
    eprintf_mutex.reinitialize();
    static_cast<void>(eprintf_mutex.tryToLock());
}

LoggerLock::LoggerLock() noexcept {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, registerForkHandlers);
    real_eprintf_lock();
}

void dumpMutex(BoundedText& text) noexcept {
    const pthread_mutex_t& native = eprintf_mutex.native();
    text.appendCut("%p: static pthread_mutex_t eprintf_mutex sizeof=%zu\n", address(&native), sizeof native);
#ifdef __GLIBC__
    text.appendCut("    lock=%d count=%u owner=%d nusers=%u kind=%d spins=%d elision=%d\n",
                   native.__data.__lock, native.__data.__count, native.__data.__owner, native.__data.__nusers,
                   native.__data.__kind, static_cast<int>(native.__data.__spins),
                   static_cast<int>(native.__data.__elision));
#endif
}

} // namespace tp
