// Where a line goes, by its level and its area.
#pragma once

#include "LoggerMutex.h"

#include <cstddef>

namespace tp {

/// Whether anybody wants a line of that level from that source file. Takes no lock.
[[nodiscard]] bool isLineWanted(int level, const char* file) noexcept;
[[nodiscard]] int areaOf(const char* file) noexcept;

/// There is a callback.
[[nodiscard]] bool hasLogCallback() noexcept;
/// Puts a line into its queue.
void putForCallback(int level, const char* file, const char* text, std::size_t length) noexcept
    TP_REQUIRES(eprintf_mutex);

} // namespace tp
