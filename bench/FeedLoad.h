#pragma once

#include <cstddef>

namespace tivra_bench {

class GroupProcess;

/// What a group of a feed's subscriptions took.
struct FeedRun {
    double addCpu = 0.0;        ///< processor time of the application's thread, in SubscriptionGroup::add
    double liveSeconds = 0.0;   ///< from the call to the last image
    double liveCpu = 0.0;       ///< processor time of the process meanwhile
    double heapBytes = 0.0;     ///< allocated for what stands
    double residentBytes = 0.0; ///< the growth of the process by then
};

/// Subscribes so many symbols by one call and waits until all are live: in a process of its own, so that each
/// run finds an empty heap. Throws std::runtime_error when one doesn't get there.
[[nodiscard]] FeedRun runSubscriptions(const GroupProcess& group, std::size_t subscriptions);

} // namespace tivra_bench
