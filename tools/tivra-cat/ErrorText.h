#pragma once

#include "ExitCode.h"
#include "Options.h"
#include "RequestBook.h"
#include "SessionWatch.h"

#include <optional>
#include <string>
#include <vector>

namespace tivra_cat {

/// Why a session could not be started, as a Failure: what was attempted, with whom, in which phase, the cause
/// and what to do.
[[nodiscard]] Failure startFailure(const Options& options, const std::string& reason,
                                   const std::optional<tivra_tools::LoginRefusal>& refusal, double seconds,
                                   const std::string& logFile);

/// A request that a hub refused, in one line.
[[nodiscard]] std::string describe(const Refusal& refusal);

/// "a, b and c".
[[nodiscard]] std::string join(const std::vector<std::string>& words);

} // namespace tivra_cat
