// One line: what it is made of, and building it in the process's one buffer.
#pragma once

#include "BoundedText.h"
#include "LinePacing.h"
#include "LoggerMutex.h"

#include <cstdarg>

namespace tp {

/// One line on its way: its call site, its message, and the error that ends it, if any.
struct LineRequest {
    const char* caller; ///< for the logger's own errors
    int level;
    const char* file;
    int line;
    const char* func;
    const int* error;
    bool isDump = false; ///< the logger's own text of many lines
    /// Wants a copy, which stands for repetitions.
    LinePacing* keeper TP_PT_GUARDED_BY(eprintf_mutex) = nullptr;

    [[nodiscard]] LinePacing::Site site() const noexcept { return {file, func, line, level}; }
};

/// Builds the line and writes it to the sinks, or reports which step failed.
__attribute__((format(printf, 2, 0))) void writeLine(const LineRequest& request, const char* fmt,
                                                     va_list args) noexcept TP_REQUIRES(eprintf_mutex);
__attribute__((format(printf, 2, 3))) void writeLinef(const LineRequest& request, const char* fmt,
                                                      ...) noexcept TP_REQUIRES(eprintf_mutex);

/// @return false when there is no memory for the buffer
bool allocateBuffer() noexcept TP_REQUIRES(eprintf_mutex);
void freeBuffer() noexcept TP_REQUIRES(eprintf_mutex);

/// Formats the prefix of each line in the file.
/// @return the prefix, which stays where it is
__attribute__((format(printf, 1, 0))) const char* setPrefix(const char* format, va_list args) noexcept
    TP_REQUIRES(eprintf_mutex);

void dumpPrefix(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex);
void dumpBuffer(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex);

} // namespace tp
