#include "receive/QueueWaker.h"

#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tivra_internal {

namespace {

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value, const timespec* timeout) noexcept {
    static_assert(sizeof(word) == sizeof(uint32_t), "the kernel looks at a plain word");
    return ::syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
}

} // namespace

void QueueWaker::wake() noexcept {
    if (m_idle.exchange(0, std::memory_order_seq_cst) != 0)
        futex(m_idle, FUTEX_WAKE, 1, nullptr);
}

void QueueWaker::wait(std::chrono::microseconds limit) noexcept {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    timespec timeout{};
    timeout.tv_sec = seconds.count();
    timeout.tv_nsec = std::chrono::nanoseconds(limit - seconds).count();
    // A wake since announceIdle() has changed the word: the kernel refuses to sleep on it then.
    futex(m_idle, FUTEX_WAIT, 1, &timeout);
    cancelIdle();
}

} // namespace tivra_internal
