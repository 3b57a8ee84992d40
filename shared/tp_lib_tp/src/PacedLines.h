// Pacing: the logger's use of LinePacing.
#pragma once

#include "BoundedText.h"
#include "LogLine.h"
#include "LoggerMutex.h"

namespace tp {

/// Whether the line may be written; if not it has been counted. The debug level traces each message on
/// purpose, so whoever turns it on gets every line.
bool passesPace(LineRequest& request) noexcept TP_REQUIRES(eprintf_mutex);

/// Writes how often lines have been held back, where that is due or, with `all`, at once.
void reportRepeats(double now, bool all) noexcept TP_REQUIRES(eprintf_mutex);

void dumpPacing(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex);

} // namespace tp
