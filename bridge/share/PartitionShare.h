#pragma once

#include "share/LeaseDecision.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

namespace tivra_bus {

/// Which partitions this bridge writes, as all bridges agree on it through their engine.
/// @thread one at a time
class PartitionShare {
public:
    using Clock = std::chrono::steady_clock;

    /// Who had a partition before, as far as that is known.
    struct Before {
        std::string holder; ///< empty for nobody
        std::uint64_t epoch = 0;
    };

    virtual ~PartitionShare() = default;

    /// What is to be done by one that holds these.
    /// @param isReady  whether it has its hubs. @throws BusError when the engine doesn't answer
    [[nodiscard]] virtual LeaseDecision decide(const std::set<unsigned>& held, bool isReady) = 0;
    /// Shows that this bridge is alive, when that is due. Called between any two steps that may wait.
    /// @throws BusError
    virtual void renew(bool isReady) = 0;
    /// @throws BusError
    [[nodiscard]] virtual Before before(unsigned partition) = 0;
    /// Takes a partition that decide() says, in a new epoch.
    /// @return false when somebody else was first. @throws BusError
    [[nodiscard]] virtual bool claim(unsigned partition, std::uint64_t epoch) = 0;
    /// Lets others have a partition that isn't written any more. @throws BusError
    virtual void giveBack(unsigned partition) = 0;
    /// Nobody needs to wait for this bridge any more.
    virtual void leave() = 0;

    /// Why it can't go on; empty while it can.
    [[nodiscard]] virtual std::string end() const = 0;
    /// Bridges that are alive, this one included.
    [[nodiscard]] virtual std::size_t members() const = 0;
    /// When the engine has last confirmed that this bridge is alive.
    [[nodiscard]] virtual Clock::time_point confirmed() const = 0;
};

} // namespace tivra_bus
