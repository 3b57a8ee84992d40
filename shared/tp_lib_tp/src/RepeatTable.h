// Repeat suppression: at most one line a second per call site.
#pragma once

#include "BoundedText.h"
#include "LoggerMutex.h"

#include <cstddef>

namespace tp {

/// Returns whether the call site has had its line in this second.
bool isRepeat(const char* file, int line) noexcept TP_REQUIRES(eprintf_mutex);

/// How many entries have ever been made.
std::size_t repeatCount() noexcept TP_REQUIRES(eprintf_mutex);

void dumpRepeats(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex);

} // namespace tp
