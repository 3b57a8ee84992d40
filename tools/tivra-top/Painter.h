#pragma once

#include "Canvas.h"
#include "Picture.h"
#include "View.h"

namespace tivra_top {

/// Fits a picture into a window of any size: what matters most stands in the first line, which is there even
/// when there is no other. The view scrolls no further than there is something to see.
[[nodiscard]] Canvas paint(const Picture& picture, View& view, std::size_t width, std::size_t height);

/// "812us", "4.1ms", "2s", for at most five characters.
[[nodiscard]] std::string durationText(std::chrono::nanoseconds time);
/// Where the times of a summary lie on a scale from 1 us to 1 s: "-" from the shortest to the longest, "="
/// from the median to the 99th percentile, "|" at the median.
[[nodiscard]] std::string distributionText(const tivra::LatencySummary& summary, std::size_t width);

} // namespace tivra_top
