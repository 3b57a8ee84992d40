// Where finished text goes: standard output, standard error, the system log and the log file.
#pragma once

#include "BoundedText.h"
#include "LoggerMutex.h"

namespace tp {

/// The same bytes to each sink, in one write.
void writeToSinks(const BoundedText& line, int priority) noexcept TP_REQUIRES(eprintf_mutex);

void writeWhole(int fd, const char* text, std::size_t length) noexcept;

/// The logger's own way out: no lock and no buffer. A host's standard output is not ours to write to, so
/// what can't go to the file goes to standard error.
void internal_error(const char* msg) noexcept;
__attribute__((format(printf, 1, 2))) void internal_errorf(const char* fmt, ...) noexcept;

} // namespace tp
