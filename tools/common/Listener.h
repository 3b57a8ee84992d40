#pragma once

#include <string>

namespace tivra_tools {

/// A socket that listens at "IPv4 address:port", as resolveListener gives it; `address` becomes the one that
/// it has, which differs for port 0. Throws std::system_error.
[[nodiscard]] int listenAt(std::string& address, int backlog);

} // namespace tivra_tools
