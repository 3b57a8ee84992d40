#pragma once

#include "common/ProgramFailure.h"

namespace tivra_wire {

/// What the program ends with; docs/tools.md and --help list the same.
enum class ExitCode : int {
    Ended = 0,
    Internal = 1,
    Usage = 2,
    Fault = 3,
    InputFailed = 4,
    OutputFailed = 5,
    HubFailed = 6
};

using Failure = tivra_tools::ProgramFailure<ExitCode>;

} // namespace tivra_wire
