#include <tp/Process.h>

#include <tp/eprintf.h>

#include <array>
#include <cstddef>
#include <pthread.h>

namespace tp {

namespace process {
constinit std::atomic<unsigned> s_forks{0};
} // namespace process

namespace {

constexpr std::size_t kMostMutexes = 8;

/// In the order of their ranks.
struct Registered {
    std::array<Mutex*, kMostMutexes> mutexes{};
    std::array<int, kMostMutexes> orders{};
    std::size_t count = 0;
};

// Neither this mutex nor what it guards is ever destroyed: a host may fork in its static destructors.
constinit pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit Registered s_registered;

void lockBeforeFork() noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
    pthread_mutex_lock(&s_mutex);
    for (std::size_t i = 0; i < s_registered.count; ++i)
        s_registered.mutexes[i]->lock();
}

void unlockAfterFork() noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
    for (std::size_t i = s_registered.count; i > 0; --i)
        s_registered.mutexes[i - 1]->unlock();
    pthread_mutex_unlock(&s_mutex);
}

void beginChild() noexcept {
    process::s_forks.fetch_add(1, std::memory_order_relaxed);
    unlockAfterFork();
}

void registerForkHandlers() noexcept {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { pthread_atfork(lockBeforeFork, unlockAfterFork, beginChild); });
}

} // namespace

ProcessMark::ProcessMark() noexcept {
    registerForkHandlers();
    m_forks = process::s_forks.load(std::memory_order_relaxed);
}

bool ProcessMark::report(const char* operation) noexcept {
    static std::atomic<unsigned> s_reported{0};
    const unsigned forks = process::s_forks.load(std::memory_order_relaxed);
    if (s_reported.exchange(forks) != forks)
        eprintf(EPF_CRIT,
                "%s in a forked process, on an object that its parent has made: such calls fail, and only "
                "the first is logged",
                operation);
    return true;
}

ProcessMutex::ProcessMutex(LockRank rank) noexcept : Mutex(rank) {
    registerForkHandlers();
    pthread_mutex_lock(&s_mutex);
    if (s_registered.count < kMostMutexes) {
        std::size_t place = s_registered.count++;
        for (; place > 0 && s_registered.orders[place - 1] > rank.order; --place) {
            s_registered.mutexes[place] = s_registered.mutexes[place - 1];
            s_registered.orders[place] = s_registered.orders[place - 1];
        }
        s_registered.mutexes[place] = this;
        s_registered.orders[place] = rank.order;
    }
    pthread_mutex_unlock(&s_mutex);
}

} // namespace tp
