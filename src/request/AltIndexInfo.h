#pragma once

#include <cstdint>
#include <string>

#include <request/Commands.h>

namespace tivra_internal {

/// One alternate identifier (CUSIP, ISIN and the like) of a request or of a ticker.
struct AltIndexInfo {
    int32_t kvnid = -1; ///< token number
    int32_t srcid = -1; ///< source, -1 when it isn't known
    std::string tokname;
    std::string value;
    bool suppressQuerySnapOutput =
        false; ///< the application asked for updates only: it doesn't see the snapshot
    tivra::Commands command = tivra::SUBSCRIBE;
};

} // namespace tivra_internal
