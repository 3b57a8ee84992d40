#pragma once

#include <string>
#include <utility>
#include <vector>

#include "TivraApi.h"

namespace tivra {

class StatisticsEvent;

/// Writes the counters of a StatisticsEvent for machines: as a line of JSON for a log, or in the OpenMetrics
/// text form for whatever serves or collects metrics. How the text gets there is the application's business.
///
/// | Metric                                       | Type    | Value                                      |
/// | -------------------------------------------- | ------- | ------------------------------------------ |
/// | tivra_in_messages_total                      | counter | MSGS_IN                                    |
/// | tivra_out_messages_total                     | counter | MSGS_OUT                                   |
/// | tivra_delivered_messages_total               | counter | NET_MSGS_OUT                               |
/// | tivra_dropped_bytes_total                    | counter | DROP                                       |
/// | tivra_hub_dropped_bytes_total                | counter | HUB_DROP                                   |
/// | tivra_queue_fill_ratio                       | gauge   | PCT_FULL, from 0.00 (empty) to 1.00 (full) |
/// | tivra_queue_peak_fill_ratio                  | gauge   | PEAK_PCT_FULL, the same                    |
/// | tivra_in_100ms_messages_per_second           | gauge   | IN_MSGS_SEC_100MS                          |
/// | tivra_in_100ms_peak_messages_per_second      | gauge   | PEAK_IN_MSGS_SEC_100MS                     |
/// | tivra_in_1s_messages_per_second, ..._1s_peak_... | gauge | IN_MSGS_SEC, PEAK_IN_MSGS_SEC            |
/// | tivra_out_..., tivra_delivered_...           | gauge   | the same of OUT_ and NET_OUT_              |
///
/// As in the event, the counters are sums over the hubs that are ready, so they go down when one is lost;
/// whoever computes rates from them sees that as a restart of the counter.
///
/// All functions may be called inside StatisticsEventHandler::onStatisticsEvent and only there, since the
/// event is valid during that call only; the texts are the caller's. They take well below a millisecond.
///
/// @thread user
class TIVRA_API StatisticsText {
public:
    /// Names and values that tell this process or session from others, such as {"application", "pricer"}.
    ///
    /// A name that isn't a label's name (see isLabelName), or that came before, is left out with its value.
    /// Values may be any text; bytes that aren't UTF-8 are replaced by U+FFFD.
    using Labels = std::vector<std::pair<std::string, std::string>>;

    StatisticsText() = delete;

    /// One JSON object without a line break:
    ///
    ///     {"time":"2025-02-10T14:30:00.512Z","labels":{"application":"pricer"},"in_messages_total":40000,...}
    ///
    /// "time" is the present time in UTC; the other keys are the metrics' names without "tivra_". There are
    /// no "labels" when there is nothing in them. Counts above 2^53 are beyond what some readers of JSON keep
    /// exactly.
    static std::string json(const StatisticsEvent& event, const Labels& labels = Labels());

    /// A complete exposition in the OpenMetrics 1.0 text form, each line ended by a line feed, the last of
    /// them "# EOF". It has no timestamps: whoever collects it stamps it. Serve it as
    /// "application/openmetrics-text; version=1.0.0; charset=utf-8".
    static std::string openMetrics(const StatisticsEvent& event, const Labels& labels = Labels());

    /// Whether a text can be the name of a label: letters, digits and "_" of ASCII, no digit first, and not
    /// "__" first, which is reserved. @thread any
    static bool isLabelName(const std::string& name) noexcept;
};

} // namespace tivra
