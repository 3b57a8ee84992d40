#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tivra_bus {

/// What a bridge should do about the partitions.
struct ShareDecision {
    std::vector<unsigned> take;
    std::vector<unsigned> release; ///< that others are to have
    std::vector<unsigned> lost;    ///< that others may have already
};

/// Which partitions this bridge writes, as all bridges agree on it through their engine.
/// @thread one at a time
class PartitionShare {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~PartitionShare() = default;

    /// Shows that this bridge is alive, and says what is to be done by one that holds these.
    /// @throws BusError when the engine doesn't answer
    [[nodiscard]] virtual ShareDecision decide(const std::set<unsigned>& held) = 0;
    /// Who had a partition before, as far as that is known.
    struct Before {
        std::string holder; ///< empty for nobody, and where that isn't known
        std::uint64_t epoch = 0;
    };
    /// @throws BusError
    [[nodiscard]] virtual Before before(unsigned partition) = 0;
    /// Takes a partition that decide() says, in a new epoch.
    /// @return false when somebody else was first. @throws BusError
    [[nodiscard]] virtual bool claim(unsigned partition, std::uint64_t epoch) = 0;
    /// Lets others have a partition, which isn't written any more. @throws BusError
    virtual void giveBack(unsigned partition, std::uint64_t epoch) = 0;
    /// The others needn't wait for this bridge any more.
    virtual void leave() = 0;

    /// Bridges that are alive, this one included.
    [[nodiscard]] virtual std::size_t members() const = 0;
    /// When the engine has last confirmed that this bridge is alive.
    [[nodiscard]] virtual Clock::time_point confirmed() const = 0;
};

} // namespace tivra_bus
