#pragma once

#include "common/ProgramFailure.h"

namespace tivra_top {

/// What the program ends with; docs/tools.md and --help list the same.
enum class ExitCode : int {
    Ended = 0,
    Internal = 1,
    Usage = 2,
    Unreachable = 3,
    LoginRefused = 4,
    NoAnswer = 6,
    OutputFailed = 8,
    Interrupted = 130
};

using Failure = tivra_tools::ProgramFailure<ExitCode>;

} // namespace tivra_top
