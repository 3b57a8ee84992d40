#ifndef TIVRA_CAT_LOGFILE_H
#define TIVRA_CAT_LOGFILE_H

#include <string>

namespace tivra_cat {

/// Base name of the library's log file, to which it adds the date: `wanted` when given, else a file in the
/// user's state directory, which is made if need be. Throws Failure for a name that the library would cut.
[[nodiscard]] std::string logFileName(const std::string& wanted);

} // namespace tivra_cat

#endif
