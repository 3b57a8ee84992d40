// Mutexes that the compiler (clang's thread-safety analysis) and debug builds (the lock order) can check.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#    define TP_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#    define TP_THREAD_ATTRIBUTE(x)
#endif

#define TP_CAPABILITY(name) TP_THREAD_ATTRIBUTE(capability(name))
#define TP_SCOPED_CAPABILITY TP_THREAD_ATTRIBUTE(scoped_lockable)
#define TP_GUARDED_BY(mutex) TP_THREAD_ATTRIBUTE(guarded_by(mutex))
#define TP_PT_GUARDED_BY(mutex) TP_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define TP_REQUIRES(...) TP_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TP_EXCLUDES(...) TP_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define TP_ACQUIRE(...) TP_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TP_TRY_ACQUIRE(...) TP_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define TP_RELEASE(...) TP_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TP_ASSERT_CAPABILITY(...) TP_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
#define TP_NO_THREAD_SAFETY_ANALYSIS TP_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#ifndef TP_CHECK_LOCK_ORDER
#    define TP_CHECK_LOCK_ORDER 0
#endif

namespace tp {

/// The place of a mutex in the lock order: a thread may take a mutex only while every mutex that it
/// holds has a lower `order`. `name` is a literal, used in reports.
struct LockRank {
    int order;
    const char* name;
};

/// Rank of a mutex that is taken last and held alone: two of them are never held together.
inline constexpr LockRank kLeafRank{1000, "leaf"};

using LockOrderViolationHandler = void (*)(const char* held, const char* wanted);

/// Replaces what happens when a thread takes a mutex out of order; null restores the default, which
/// writes both names to standard error and aborts. Only builds with TP_CHECK_LOCK_ORDER=1 ever call it.
/// @return the handler in use before (null for the default)
LockOrderViolationHandler setLockOrderViolationHandler(LockOrderViolationHandler handler) noexcept;

namespace lock_order {
void beforeLock(const LockRank& wanted);
void locked(const void* mutex, const LockRank& rank) noexcept;
void unlocked(const void* mutex) noexcept;
void assertHeld(const void* mutex, const LockRank& rank);
} // namespace lock_order

/// A std::mutex with a place in the lock order. Any thread.
class TP_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() noexcept : Mutex(kLeafRank) {}
#if TP_CHECK_LOCK_ORDER
    constexpr explicit Mutex(LockRank rank) noexcept : m_rank(rank) {}
#else
    constexpr explicit Mutex(LockRank) noexcept {}
#endif
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() TP_ACQUIRE() {
#if TP_CHECK_LOCK_ORDER
        lock_order::beforeLock(m_rank);
#endif
        m_mutex.lock();
#if TP_CHECK_LOCK_ORDER
        lock_order::locked(this, m_rank);
#endif
    }

    void unlock() TP_RELEASE() {
#if TP_CHECK_LOCK_ORDER
        lock_order::unlocked(this);
#endif
        m_mutex.unlock();
    }

    /// Tells the analysis that this thread holds the mutex; builds that check the lock order verify it.
    void assertHeld() const TP_ASSERT_CAPABILITY(this) {
#if TP_CHECK_LOCK_ORDER
        lock_order::assertHeld(this, m_rank);
#endif
    }

private:
    friend class ConditionVariable;

    std::mutex m_mutex;
#if TP_CHECK_LOCK_ORDER
    LockRank m_rank;
#endif
};

/// Holds a Mutex for a scope. One thread; unlock() and lock() hand it over in the middle of the scope.
class TP_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) TP_ACQUIRE(mutex) : m_mutex(mutex), m_held(true) { m_mutex.lock(); }
    ~MutexLock() TP_RELEASE() {
        if (m_held)
            m_mutex.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void unlock() TP_RELEASE() {
        m_held = false;
        m_mutex.unlock();
    }
    void lock() TP_ACQUIRE() {
        m_mutex.lock();
        m_held = true;
    }

private:
    Mutex& m_mutex;
    bool m_held;
};

/// A condition variable over Mutex. Waits may wake without a reason: wait in a loop over the condition,
/// `while (!done) condition.wait(mutex);`, which the analysis can follow, unlike a predicate.
class ConditionVariable {
public:
    ConditionVariable() = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void notifyOne() noexcept { m_condition.notify_one(); }
    void notifyAll() noexcept { m_condition.notify_all(); }

    void wait(Mutex& mutex) TP_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(lock);
        lock.release();
    }

    /// @return false when the deadline has passed
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) TP_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        const bool notified = m_condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return notified;
    }

    /// @return false when the time has passed
    template<class Rep, class Period>
    bool waitFor(Mutex& mutex, std::chrono::duration<Rep, Period> time) TP_REQUIRES(mutex) {
        return waitUntil(mutex, std::chrono::steady_clock::now() +
                                    std::chrono::ceil<std::chrono::steady_clock::duration>(time));
    }

private:
    std::condition_variable m_condition;
};

} // namespace tp
