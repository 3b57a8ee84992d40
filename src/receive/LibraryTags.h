#pragma once

#include <cstdint>

namespace tivra_internal {

// The tags of the library's own requests whose answers still arrive once a hub is ready.
inline constexpr int64_t kGetStatusTag = 12;           ///< subscription to the heartbeat
inline constexpr int64_t kGetHubStatusTag = 13;        ///< subscription to the hub's status
inline constexpr int64_t kReportApiStatisticsTag = 17; ///< report of the queue's fill level
inline constexpr int64_t kLastLibraryTag = kReportApiStatisticsTag;
/// From here on tags are the application's.
inline constexpr int64_t kFirstUserTag = kLastLibraryTag + 1;

/// The library's own status, in place of an answer that was lost with the connection.
inline constexpr int64_t kStatusConnectionLost = -997;

} // namespace tivra_internal
