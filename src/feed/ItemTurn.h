#pragma once

#include <atomic>
#include <cstdint>

#include <tp/Mutex.h>

namespace tivra_internal {

/// The right to call what has been registered for one item: a mutex that costs one atomic operation where
/// nobody waits, since there is one for each symbol and it is taken for each message. Who waits may be woken
/// a moment late.
class TP_CAPABILITY("mutex") ItemTurn {
public:
    ItemTurn() = default;
    ItemTurn(const ItemTurn&) = delete;
    ItemTurn& operator=(const ItemTurn&) = delete;

    void lock() noexcept TP_ACQUIRE() {
        if (!tryTake())
            waitAndTake();
    }
    [[nodiscard]] bool tryLock() noexcept TP_TRY_ACQUIRE(true) { return tryTake(); }
    // A waiter that announces itself at the same moment may be missed; it looks again by itself.
    void unlock() noexcept TP_RELEASE() {
        m_isTaken.store(0, std::memory_order_release);
        if (m_waiters.load(std::memory_order_relaxed) != 0)
            wake();
    }

private:
    [[nodiscard]] bool tryTake() noexcept { return m_isTaken.exchange(1, std::memory_order_acquire) == 0; }
    void waitAndTake() noexcept;
    void wake() noexcept;

    std::atomic<std::uint32_t> m_isTaken{0};
    std::atomic<std::uint32_t> m_waiters{0};
};

} // namespace tivra_internal
