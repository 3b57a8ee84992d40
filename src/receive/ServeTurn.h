#pragma once

#include <atomic>
#include <cstdint>

#include "receive/RoundLimit.h"

namespace tivra_internal {

/// How far a handler may go in one call of a dispatch: so many items, none once the time is over, it has been
/// unregistered or the loop is to end, and among others only while items are short. @thread user
class ServeTurn {
public:
    enum Company { Alone, AmongOthers };

    /// @param wanted    the handler's pending events, 0 once it is unregistered
    /// @param mustExit  not 0 once the loop is to end
    ServeTurn(Company company, int items, RoundLimit& limit, const std::atomic<uint32_t>& wanted,
              const std::atomic<int>& mustExit) noexcept
        : m_isAlone(company == Alone)
        , m_left(items)
        , m_limit(limit)
        , m_wanted(wanted)
        , m_mustExit(mustExit) {}

    /// To be asked before each item but the first.
    [[nodiscard]] bool mayGoOn() noexcept {
        return --m_left > 0 && m_wanted.load(std::memory_order_relaxed) != 0 &&
               m_mustExit.load(std::memory_order_relaxed) == 0 && !m_limit.isReached() &&
               (m_isAlone || m_limit.areShort());
    }

private:
    const bool m_isAlone;
    int m_left;
    RoundLimit& m_limit;
    const std::atomic<uint32_t>& m_wanted;
    const std::atomic<int>& m_mustExit;
};

} // namespace tivra_internal
