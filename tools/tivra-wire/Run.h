#pragma once

#include "ExitCode.h"
#include "Options.h"

namespace tivra_wire {

/// Does what the options say, file by file. Throws Failure; a fault of the input is reported on standard
/// error. What stood before either has been written.
[[nodiscard]] ExitCode run(const Options& options);

} // namespace tivra_wire
