#pragma once

#include <atomic>
#include <cstdint>

#include <tp/Mutex.h>

namespace tivra_internal {

/// The right to call what has been registered for one item: a mutex of four bytes that costs two atomic
/// operations where nobody waits, since there is one for each symbol and it is taken for each message.
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
    void unlock() noexcept TP_RELEASE() {
        if (m_state.exchange(kFree, std::memory_order_release) == kWaitedFor)
            m_state.notify_one();
    }

private:
    static constexpr std::uint32_t kFree = 0;
    static constexpr std::uint32_t kTaken = 1;
    static constexpr std::uint32_t kWaitedFor = 2; ///< taken, and somebody waits

    [[nodiscard]] bool tryTake() noexcept {
        std::uint32_t free = kFree;
        return m_state.compare_exchange_strong(free, kTaken, std::memory_order_acquire,
                                               std::memory_order_relaxed);
    }
    void waitAndTake() noexcept {
        while (m_state.exchange(kWaitedFor, std::memory_order_acquire) != kFree)
            m_state.wait(kWaitedFor, std::memory_order_relaxed);
    }

    std::atomic<std::uint32_t> m_state{kFree};
};

} // namespace tivra_internal
