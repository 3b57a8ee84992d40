#pragma once

#include "ExitCode.h"
#include "Options.h"

namespace tivra_cat {

/// A run of `snapshot` or `subscribe` that reads what bridges have published, in place of a hub.
/// @throws Failure when it can't begin, and for options that have no meaning there
[[nodiscard]] ExitCode runFromBus(const Options& options);

} // namespace tivra_cat
