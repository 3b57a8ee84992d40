// What the logger has been asked for: options, level and sinks.
#pragma once

#include "BoundedText.h"

#include <tp/eprintf.h>

#include <atomic>

namespace tp {

// Written under eprintf_mutex, but also read without it: whether a line is logged at all is decided before.
extern std::atomic<unsigned char> eprintf_opts;
extern std::atomic<int> eprintf_loglvl;
extern std::atomic<int> eprintf_sink;

inline bool hasOption(logopt_t option) noexcept {
    return (eprintf_opts.load(std::memory_order_relaxed) & option) != 0;
}

inline bool hasSink(int sinks) noexcept {
    return (eprintf_sink.load(std::memory_order_relaxed) & sinks) != 0;
}

void dumpOptions(BoundedText& text) noexcept;

} // namespace tp
