#pragma once

#include <string>

namespace tivra_tools {

/// The password of `user`, from the first of: the file when one is named ("-" is standard input), the
/// environment variable TIVRA_PASSWORD, a prompt on the terminal without echo. `program` heads what is told
/// on the way. Throws UsageError when none of them gives one.
[[nodiscard]] std::string obtainPassword(const std::string& user, const std::string& passwordFile,
                                         const std::string& program);

} // namespace tivra_tools
