#pragma once

#include <string>
#include <vector>

namespace tivra_tools {

/// All that "name:port" or "address:port" stands for, each as "IPv4 address:port". Throws UsageError for a
/// wrong form, a port outside 1 to 65535 and a name that has no IPv4 address.
[[nodiscard]] std::vector<std::string> resolveHost(const std::string& text);

/// The first one of an address to listen at, "PORT" or "ADDRESS:PORT": port 0 is for a free one, and without
/// an address it is 127.0.0.1.
[[nodiscard]] std::string resolveListener(const std::string& text);

} // namespace tivra_tools
