#pragma once

#include "common/ProgramFailure.h"

namespace tivra_tools {

/// What a program that shows a feed ends with; docs/tools.md and each program's --help list those that it
/// has.
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

using Failure = ProgramFailure<ExitCode>;

} // namespace tivra_tools
