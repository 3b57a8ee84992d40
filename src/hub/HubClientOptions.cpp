#include "hub/HubClientOptions.h"

#include <algorithm>

namespace tivra_internal {

namespace {

constexpr long kMaxConnectionTimeout = 2'000'000; // seconds

} // namespace

HubClientOptions HubClientOptions::withinLimits() const {
    HubClientOptions usable = *this;
    usable.connectionTimeout = std::clamp(connectionTimeout, 0L, kMaxConnectionTimeout);
    usable.connectionRetryLimit = std::max(connectionRetryLimit, 0L);
    usable.readTimeout = std::max(readTimeout, 0L);
    usable.queueSize = std::max(queueSize, 0L);
    return usable;
}

} // namespace tivra_internal
