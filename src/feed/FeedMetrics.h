#pragma once

#include <string>

#include <feed/Feed.h>

namespace tivra_internal {

/// The figures as one JSON object without a line break.
[[nodiscard]] std::string feedJson(const tivra::FeedStatistics& figures,
                                   const tivra::Feed::StatisticsLabels& labels);
/// The figures as a complete exposition in the OpenMetrics text form.
[[nodiscard]] std::string feedOpenMetrics(const tivra::FeedStatistics& figures,
                                          const tivra::Feed::StatisticsLabels& labels);

} // namespace tivra_internal
