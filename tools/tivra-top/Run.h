#pragma once

#include "ExitCode.h"
#include "Options.h"
#include "Signals.h"
#include "Watch.h"

namespace tivra_top {

/// The screen, until somebody ends it.
[[nodiscard]] ExitCode runScreen(const Options& options, Watch& watch, Signals& signals);
/// One picture as text on standard output.
[[nodiscard]] ExitCode runOnce(const Options& options, Watch& watch, Signals& signals);

/// The page for browsers, until a signal ends it.
[[nodiscard]] ExitCode runPage(const Options& options, Watch& watch, Signals& signals);

} // namespace tivra_top
