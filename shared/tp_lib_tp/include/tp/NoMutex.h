#pragma once

#include <tp/Mutex.h>

namespace tp {

/// Stands in for a Mutex in a template's instance that one thread alone uses: it costs nothing.
class TP_CAPABILITY("mutex") NoMutex {
public:
    constexpr explicit NoMutex(LockRank) noexcept {}
    NoMutex(const NoMutex&) = delete;
    NoMutex& operator=(const NoMutex&) = delete;

    /// The scope guard, as MutexLock is that of a Mutex.
    class TP_SCOPED_CAPABILITY Lock {
    public:
        explicit Lock(NoMutex& mutex) TP_ACQUIRE(mutex) { static_cast<void>(mutex); }
        ~Lock() TP_RELEASE() {}
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
    };
};

} // namespace tp
