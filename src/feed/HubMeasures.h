#pragma once

#include <string>
#include <utility>

#include "feed/LatencyHistogram.h"

namespace tivra_internal {

/// What is measured of one hub. @thread any
struct HubMeasures {
    explicit HubMeasures(std::string address) : hub(std::move(address)) {}

    const std::string hub; ///< "host:port"
    LatencyHistogram socketToDecode;
    LatencyHistogram decodeToCallback;
    LatencyHistogram callback;
};

} // namespace tivra_internal
