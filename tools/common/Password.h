#pragma once

#include <string>

namespace tivra_tools {

/// The password of `user`, from the first of: the file when one is named ("-" is standard input), the
/// environment variable TIVRA_PASSWORD, a prompt on the terminal without echo. Throws UsageError when none of
/// them gives one, and for a file that others can read.
[[nodiscard]] std::string obtainPassword(const std::string& user, const std::string& passwordFile);

/// The first line of a file that holds a `what`, such as a password. Throws UsageError when there is none,
/// and for a file that others can read.
[[nodiscard]] std::string readSecret(const std::string& path, const char* what);

} // namespace tivra_tools
