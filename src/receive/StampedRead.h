#pragma once

#include <sys/types.h>

#include <cstddef>

namespace tivra_internal {

/// Has the kernel stamp what comes over a socket, for readStamped. False when it can't.
bool stampArrivals(int fd) noexcept;

/// Reads as ::read does, and says by the monotonic clock when the last of these bytes came to this machine:
/// now, for a socket whose bytes aren't stamped.
[[nodiscard]] ssize_t readStamped(int fd, char* buffer, std::size_t length, double& arrivedAt) noexcept;

} // namespace tivra_internal
