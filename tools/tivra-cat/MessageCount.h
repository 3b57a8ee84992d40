#pragma once

#include "Counters.h"
#include "Wakeup.h"

#include <tivra.h>

#include <atomic>
#include <cstdint>

namespace tivra_cat {

/// Counts messages with data as they are taken, up to a limit.
/// @thread any
class MessageCount {
public:
    /// @param limit  messages to take, 0 for no limit. Whoever sleeps is woken when it is reached
    MessageCount(std::uint64_t limit, Counters& counters, const Wakeup& wakeup)
        : m_limit(limit), m_counters(counters), m_wakeup(wakeup) {}

    /// Whether one more message is wanted; it is taken then, and has to be counted.
    [[nodiscard]] bool claim();
    void count(tivra::MessageEvent::Types type);

    [[nodiscard]] bool isLimitReached() const {
        return m_limit > 0 && m_claimed.load(std::memory_order_relaxed) >= m_limit;
    }

private:
    const std::uint64_t m_limit;
    Counters& m_counters;
    const Wakeup& m_wakeup;
    std::atomic<std::uint64_t> m_claimed{0};
};

} // namespace tivra_cat
