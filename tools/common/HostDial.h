#pragma once

#include <chrono>
#include <string>

namespace tivra_tools {

/// Dials "IPv4 address:port" once more, without a word to whoever answers, to say why a program didn't get
/// there: "10.1.2.3:4567 refuses the connection: nobody listens there (ECONNREFUSED, errno 111)".
[[nodiscard]] std::string dialOutcome(const std::string& host, std::chrono::milliseconds patience);

} // namespace tivra_tools
