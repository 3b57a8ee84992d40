// The log file: its name with the date, opening it, and a new one when the day changes.
#pragma once

#include "BoundedText.h"
#include "LoggerMutex.h"

#include <cstdio>
#include <time.h>

namespace tp {

/// @return whether the file is open; a failure is reported
bool openLogFile() noexcept TP_REQUIRES(eprintf_mutex);
void closeLogFile() noexcept TP_REQUIRES(eprintf_mutex);
/// Goes on to the file of the day, if that is not the open one.
void rollLogFile(const tm& local) noexcept TP_REQUIRES(eprintf_mutex);

/// Begins a new file if so many bytes more would make the open one larger than its limit.
void limitLogFile(std::size_t bytes) noexcept TP_REQUIRES(eprintf_mutex);

/// Null when none is open. Lines are written past its buffer, to logFileDescriptor().
FILE* logFile() noexcept TP_REQUIRES(eprintf_mutex);
int logFileDescriptor() noexcept TP_REQUIRES(eprintf_mutex);

/// The present local time, by the library's clock.
bool localNow(tm& local) noexcept;

void dumpLogFile(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex);

} // namespace tp
