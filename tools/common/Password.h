#pragma once

#include <string>

namespace tivra_tools {

/// The password of `user`, from the first of: the file when one is named ("-" is standard input), the
/// environment variable TIVRA_PASSWORD, a prompt on the terminal without echo. Throws UsageError when none of
/// them gives one, and for a file that others can read.
[[nodiscard]] std::string obtainPassword(const std::string& user, const std::string& passwordFile);

/// The bearer token in the first line of a file. Throws UsageError when there is none that a request could
/// carry, and for a file that others can read.
[[nodiscard]] std::string readToken(const std::string& path);

} // namespace tivra_tools
