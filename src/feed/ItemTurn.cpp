#include "feed/ItemTurn.h"

#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tivra_internal {
namespace {

/// How late a waiter may find out that it was missed, in nanoseconds.
constexpr long kLookAgainNanoseconds = 500'000;

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

} // namespace

void ItemTurn::waitAndTake() noexcept {
    m_waiters.fetch_add(1, std::memory_order_seq_cst);
    while (!tryTake()) {
        const timespec limit{0, kLookAgainNanoseconds};
        ::syscall(SYS_futex, &m_isTaken, FUTEX_WAIT_PRIVATE, 1, &limit, nullptr, 0);
    }
    m_waiters.fetch_sub(1, std::memory_order_relaxed);
}

void ItemTurn::wake() noexcept {
    ::syscall(SYS_futex, &m_isTaken, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace tivra_internal
