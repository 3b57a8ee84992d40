#pragma once

#include <cstdint>
#include <limits>

#include <request/Commands.h>

namespace tivra_internal {

/// The status by which a hub says that it does not carry what a news request asked for.
inline constexpr int64_t kStatusNotCarried = -220;
/// `rc` of a request that no hub has answered yet.
inline constexpr int64_t kNoStatusYet = std::numeric_limits<int64_t>::max();

/// What is known of a request in flight and of the status message that has just come for it.
struct MergeQuestion {
    tivra::Commands command = tivra::SUBSCRIBE;
    bool isEntitlementPort = false; ///< the library's own question for the hub of a newly granted source
    bool isNews = false;
    bool responseSent = false; ///< an earlier response has been let through
    bool last = false;         ///< no further response is to come
    int64_t lowestStatus = kNoStatusYet;
    int64_t status = 0;
    int pairCount = 0; ///< pairs of the message
};

/// What becomes of the message and of the request's entry.
struct MergeDecision {
    bool suppress = true;
    bool removeStatus = false;           ///< let it through, but not as the end of the series
    bool responseSent = false;           ///< new value of the entry's flag
    int64_t lowestStatus = kNoStatusYet; ///< new value of the entry's `rc`
    bool writeLowestStatus = false;      ///< the message carries the lowest status of all hubs
    bool finishEntitlement = false;      ///< the port of a newly granted source has come
};

/// The rule by which many hubs' answers to one tag become one answer for the application.
[[nodiscard]] MergeDecision decideMerge(const MergeQuestion& question);

} // namespace tivra_internal
