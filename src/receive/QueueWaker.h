#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tivra_internal {

/// Lets the producers of a user thread's queues end its idle wait. One thread waits; any thread may wake it.
///
/// The waiting thread announces that it is about to wait, looks once more whether there is work, and only
/// then waits. While it is busy, all that a producer pays is one load.
class QueueWaker {
public:
    QueueWaker() = default;
    QueueWaker(const QueueWaker&) = delete;
    QueueWaker& operator=(const QueueWaker&) = delete;

    /// A wake would do something now.
    [[nodiscard]] bool isIdle() const noexcept { return m_idle.load(std::memory_order_acquire) != 0; }
    void wake() noexcept;

    void announceIdle() noexcept { m_idle.store(1, std::memory_order_seq_cst); }
    void cancelIdle() noexcept { m_idle.store(0, std::memory_order_relaxed); }
    /// Waits until wake() is called, at most for the time. Ends at once when that has happened since
    /// announceIdle().
    void wait(std::chrono::microseconds limit) noexcept;

private:
    std::atomic<uint32_t> m_idle{0};
};

} // namespace tivra_internal
