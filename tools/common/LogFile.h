#pragma once

#include <string>

namespace tivra_tools {

/// Base name of the library's log file, to which it adds the date: `wanted` when given, else a file named for
/// the program in the user's state directory, which is made if need be. Throws UsageError for a name that the
/// library would cut.
[[nodiscard]] std::string logFileName(const std::string& wanted, const std::string& program);

/// The file that the library writes for such a name now, with its date; the name itself while there is none.
[[nodiscard]] std::string existingLogFile(const std::string& baseName);

} // namespace tivra_tools
