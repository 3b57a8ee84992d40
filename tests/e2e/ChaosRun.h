#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "Weather.h"

namespace chaos {

/// What many runs come to.
struct Totals {
    std::size_t spells = 0;
    std::size_t updates = 0;
    std::size_t gaps = 0;                     ///< spells in which numbers were missing
    std::chrono::milliseconds longestCalm{0}; ///< from clear weather to everything alive again
    std::chrono::milliseconds longestStop{0};
};

/// Plays a forecast over a session that subscribes from two groups of hubs, and checks after each spell that
/// everything is alive again and nothing was lost without a word. Gives the first thing that was wrong. The
/// library's clock runs fast meanwhile.
std::optional<std::string> run(const Forecast& forecast, Totals& totals);

} // namespace chaos
