#pragma once

#include <atomic>
#include <cstdint>

#include <tp/Clock.h>

namespace tivra_internal {

/// Shows which callback a stream is in, to whoever looks for slow ones: three stores for each, and no look at
/// the clock. Calls of one stream come one at a time.
class CallbackSlot {
public:
    /// The stream is in the callbacks of an item as long as this lives.
    class Scope {
    public:
        /// @param tag  of the item's request
        Scope(CallbackSlot& slot, std::int64_t tag) noexcept
            : m_slot(slot), m_turn(slot.m_turn.load(std::memory_order_relaxed) + 1) {
            m_slot.m_tag.store(tag, std::memory_order_relaxed);
            m_slot.m_turn.store(m_turn, std::memory_order_release);
        }
        ~Scope() {
            m_slot.m_turn.store(m_turn + 1, std::memory_order_release);
            if (m_slot.m_reported.load(std::memory_order_relaxed) == m_turn)
                m_slot.m_endedAt.store(tp::Clock::monotonic(), std::memory_order_release);
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        CallbackSlot& m_slot;
        const std::uint64_t m_turn;
    };

private:
    friend class CallbackWatch;

    std::atomic<std::uint64_t> m_turn{0}; ///< odd during a callback
    std::atomic<std::int64_t> m_tag{0};
    std::atomic<std::uint64_t> m_reported{0}; ///< the turn that was found slow
    std::atomic<double> m_endedAt{0.0}; ///< of that turn, by the monotonic clock; 0 while it isn't known

    // Of who looks.
    std::uint64_t m_seen = 0; ///< the turn that the last look has met
    double m_seenAt = 0.0;    ///< when it was met first
    std::int64_t m_seenTag = 0;
    bool m_isSlow = false; ///< and has been reported
};

} // namespace tivra_internal
