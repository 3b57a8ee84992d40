#pragma once

#include "common/ProgramFailure.h"

namespace tivra_cat {

/// What the program ends with; docs/tools.md and --help list the same.
enum class ExitCode : int {
    Ended = 0,
    Internal = 1,
    Usage = 2,
    Unreachable = 3,
    LoginRefused = 4,
    RequestRefused = 5,
    NoAnswer = 6,
    Lost = 7,
    OutputFailed = 8,
    Interrupted = 130
};

using Failure = tivra_tools::ProgramFailure<ExitCode>;

} // namespace tivra_cat
