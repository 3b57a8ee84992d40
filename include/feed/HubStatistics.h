#pragma once

#include <cstdint>
#include <string>

#include "feed/LatencySummary.h"

namespace tivra {

/// What a feed has counted of one hub, since it was opened. A hub that has gone stays.
struct HubStatistics {
    std::string hub;           ///< "host:port"
    std::uint64_t updates = 0; ///< handed to subscriptions, but for the parts of images
    /// How full the queue between the hub's connection and the callbacks is now, from 0 to 1; 0 for a hub
    /// that has gone. Near 1 hubs are held up or data is lost, as HOLD_READS_BOOL says.
    double queueFill = 0.0;
    // Of one message in FeedOptions::latencySampling.
    LatencySummary socketToDecode; ///< from the end of the read that completed a message until it is decoded
    LatencySummary decodeToCallback; ///< from there until its first onUpdate is called
    LatencySummary callback;         ///< how long onUpdate took
};

} // namespace tivra
