// The logger's state as text, and who gets it.
#pragma once

#include "LoggerMutex.h"

#include <cstddef>

namespace tp {

inline constexpr std::size_t kDumpSize = 16328;

/// Has the state written to a file of its own when the process ends, if the environment asks for that.
void registerDumpAtExit() noexcept TP_REQUIRES(eprintf_mutex);

} // namespace tp
