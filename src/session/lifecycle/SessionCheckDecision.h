#pragma once

namespace tivra_internal {

/// What one session check has counted.
struct HubCounts {
    int downs = 0;    ///< losses since the last check
    int ready = 0;    ///< hubs that have finished their conversation
    int notReady = 0; ///< hubs that have not
    int pending = 0;  ///< ready hubs that still wait for a read handler
    int aside = 0;    ///< hubs that a start goes on without
};

/// What a session check does with its counts.
enum class CheckPath { Down, Last, Partial, AllReady };

struct CheckDecision {
    CheckPath path;
    HubCounts counts; ///< the counts as the path has to report them
};

/// The path for the counts of one check. A loss since the last check counts against `ready`, even though
/// every hub looks ready now: it has been replaced faster than the check could see.
[[nodiscard]] CheckDecision decideSessionCheck(HubCounts counts);

} // namespace tivra_internal
