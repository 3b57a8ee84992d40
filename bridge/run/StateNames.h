#pragma once

#include <feed/ConnectionEvent.h>
#include <feed/Subscription.h>

namespace tivra_bus {

/// "pending", "live" and so on, as records have them.
[[nodiscard]] const char* nameOf(tivra::DataState state);
[[nodiscard]] const char* nameOf(tivra::Gap::Cause cause);
/// "up", "stale" or "down", as the status of a source has it.
[[nodiscard]] const char* statusOf(tivra::FeedState state);

} // namespace tivra_bus
