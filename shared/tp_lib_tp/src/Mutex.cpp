#include <tp/Mutex.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace tp {

// A mutex at namespace scope must still work while a host's static destructors run.
static_assert(std::is_trivially_destructible_v<Mutex>);

namespace {

struct HeldLock {
    const void* mutex;
    LockRank rank;
};

// Plain arrays, so that a thread's end runs no destructor; a thread never comes near the bound.
struct HeldLocks {
    static constexpr int kCapacity = 32;
    std::array<HeldLock, kCapacity> locks;
    int count;
};

thread_local HeldLocks t_held{};
std::atomic<LockOrderViolationHandler> s_handler{nullptr};

void abortOnViolation(const char* held, const char* wanted) {
    std::fprintf(stderr, "lock order violated: \"%s\" wanted while \"%s\" is held\n", wanted, held);
    std::abort();
}

void report(const char* held, const char* wanted) {
    const LockOrderViolationHandler handler = s_handler.load();
    (handler != nullptr ? handler : abortOnViolation)(held, wanted);
}

} // namespace

LockOrderViolationHandler setLockOrderViolationHandler(LockOrderViolationHandler handler) noexcept {
    return s_handler.exchange(handler);
}

namespace lock_order {

void beforeLock(const LockRank& wanted) {
    const HeldLock* worst = nullptr;
    for (int i = 0; i < t_held.count; ++i) {
        const HeldLock& held = t_held.locks[static_cast<std::size_t>(i)];
        if (held.rank.order >= wanted.order && (worst == nullptr || held.rank.order > worst->rank.order))
            worst = &held;
    }
    if (worst != nullptr)
        report(worst->rank.name, wanted.name);
}

void locked(const void* mutex, const LockRank& rank) noexcept {
    if (t_held.count < HeldLocks::kCapacity)
        t_held.locks[static_cast<std::size_t>(t_held.count++)] = {mutex, rank};
}

void unlocked(const void* mutex) noexcept {
    for (int i = t_held.count - 1; i >= 0; --i) {
        if (t_held.locks[static_cast<std::size_t>(i)].mutex != mutex)
            continue;
        for (int next = i + 1; next < t_held.count; ++next)
            t_held.locks[static_cast<std::size_t>(next - 1)] = t_held.locks[static_cast<std::size_t>(next)];
        --t_held.count;
        return;
    }
}

void assertHeld(const void* mutex, const LockRank& rank) {
    for (int i = 0; i < t_held.count; ++i) {
        if (t_held.locks[static_cast<std::size_t>(i)].mutex == mutex)
            return;
    }
    report("nothing", rank.name);
}

} // namespace lock_order

} // namespace tp
