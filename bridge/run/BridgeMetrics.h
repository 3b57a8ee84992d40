#pragma once

#include "run/Bridge.h"

#include <string>

namespace tivra_bus {

/// The counters and the status of a bridge in the OpenMetrics 1.0 text form, without its end line.
[[nodiscard]] std::string bridgeMetrics(const Bridge& bridge);
/// The status as a JSON object.
[[nodiscard]] std::string bridgeHealth(const Bridge& bridge);
/// Whether it does what it should: it is connected on both sides, its leases are renewed and the
/// engine takes what it writes.
[[nodiscard]] bool isHealthy(const BridgeStatus& status);

} // namespace tivra_bus
