#pragma once

#include "hub/HubVersion.h"

namespace tivra_internal {

inline constexpr long kConflationTypeTradeSafe = 1;
inline constexpr long kConflationTypeJit = 3;
inline constexpr long kConflationTypeJitIntervalized = 4;
inline constexpr long kDefaultConflationInterval = 1000;
inline constexpr long kDefaultJitThreshold = 25;
inline constexpr long kMinJitThreshold = 1;
inline constexpr long kMaxJitThreshold = 75;

/// The conflation that a hub is asked for.
struct ConflationChoice {
    long type = kConflationTypeTradeSafe;
    bool isJit = false;
    long threshold = kDefaultJitThreshold; ///< percent; sent with just-in-time conflation only

    friend constexpr bool operator==(const ConflationChoice&, const ConflationChoice&) = default;
};

/// What the host's settings come to on a hub of that version; a setting that can't be followed is logged.
[[nodiscard]] ConflationChoice chooseConflation(long type, long threshold, HubVersion version);

/// Logs an interval that the hub will ignore beside this type.
void noteIgnoredInterval(long type, long interval);

} // namespace tivra_internal
