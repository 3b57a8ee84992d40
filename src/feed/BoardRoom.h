#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tivra_internal {

/// The bytes that the lines of a board have together, and what there was no room for. @thread any
class BoardRoom {
public:
    explicit BoardRoom(std::size_t limit) noexcept : m_limit(limit) {}
    BoardRoom(const BoardRoom&) = delete;
    BoardRoom& operator=(const BoardRoom&) = delete;

    /// False, with nothing taken, when there aren't so many bytes left.
    [[nodiscard]] bool take(std::size_t bytes) noexcept {
        std::size_t used = m_used.load(std::memory_order_relaxed);
        do {
            if (bytes > m_limit - used)
                return false;
        } while (!m_used.compare_exchange_weak(used, used + bytes, std::memory_order_relaxed));
        return true;
    }
    void give(std::size_t bytes) noexcept { m_used.fetch_sub(bytes, std::memory_order_relaxed); }
    void countLeftOut() noexcept { m_leftOut.fetch_add(1, std::memory_order_relaxed); }

    [[nodiscard]] std::size_t used() const noexcept { return m_used.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t leftOut() const noexcept { return m_leftOut.load(std::memory_order_relaxed); }

private:
    const std::size_t m_limit;
    std::atomic<std::size_t> m_used{0};
    std::atomic<std::uint64_t> m_leftOut{0};
};

} // namespace tivra_internal
