#pragma once

#include <feed/FeedOptions.h>

namespace tivra {
class Session;
} // namespace tivra

namespace tivra_internal {

/// Hands the hosts and parameters of the options to a session that isn't started.
/// @throws tivra::Error (InvalidOption) for what can't be meant
void configureSession(const tivra::FeedOptions& options, tivra::Session& session);

} // namespace tivra_internal
