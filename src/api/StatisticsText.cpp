#include <event/StatisticsText.h>

#include <cstdint>
#include <string_view>

#include <event/StatisticsEvent.h>

#include "api/MetricText.h"

namespace tivra {
namespace {

using tivra_internal::join;

/// One metric. A name ends with its unit, and a counter's samples with "_total" behind that.
struct Metric {
    StatisticsEvent::StatsTypes type;
    std::string_view name;
    std::string_view unit;
    std::string_view help; ///< without a character that would have to be escaped
    bool isCounter;
};

constexpr std::string_view kPrefix = "tivra_";
constexpr std::string_view kMessages = "messages";
constexpr std::string_view kBytes = "bytes";
constexpr std::string_view kRatio = "ratio";
constexpr std::string_view kRate = "messages_per_second";

constexpr Metric kMetrics[] = {
    {StatisticsEvent::MSGS_IN, "in_messages", kMessages, "Messages put into the receive queues.", true},
    {StatisticsEvent::MSGS_OUT, "out_messages", kMessages, "Messages taken out of the receive queues.", true},
    {StatisticsEvent::NET_MSGS_OUT, "delivered_messages", kMessages, "Messages handed to the application.",
     true},
    {StatisticsEvent::DROP, "dropped_bytes", kBytes,
     "Bytes dropped because a receive queue was full, a frame was bad or a connection was lost.", true},
    {StatisticsEvent::HUB_DROP, "hub_dropped_bytes", kBytes, "Bytes dropped at the hubs.", true},
    {StatisticsEvent::PCT_FULL, "queue_fill_ratio", kRatio, "Fill level of the fullest receive queue.",
     false},
    {StatisticsEvent::PEAK_PCT_FULL, "queue_peak_fill_ratio", kRatio,
     "Highest fill level of a receive queue.", false},
    {StatisticsEvent::IN_MSGS_SEC_100MS, "in_100ms_messages_per_second", kRate,
     "Rate into the receive queues over 100 ms.", false},
    {StatisticsEvent::PEAK_IN_MSGS_SEC_100MS, "in_100ms_peak_messages_per_second", kRate,
     "Highest rate into the receive queues over 100 ms.", false},
    {StatisticsEvent::IN_MSGS_SEC, "in_1s_messages_per_second", kRate,
     "Rate into the receive queues over a second.", false},
    {StatisticsEvent::PEAK_IN_MSGS_SEC, "in_1s_peak_messages_per_second", kRate,
     "Highest rate into the receive queues over a second.", false},
    {StatisticsEvent::OUT_MSGS_SEC_100MS, "out_100ms_messages_per_second", kRate,
     "Rate out of the receive queues over 100 ms.", false},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC_100MS, "out_100ms_peak_messages_per_second", kRate,
     "Highest rate out of the receive queues over 100 ms.", false},
    {StatisticsEvent::OUT_MSGS_SEC, "out_1s_messages_per_second", kRate,
     "Rate out of the receive queues over a second.", false},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC, "out_1s_peak_messages_per_second", kRate,
     "Highest rate out of the receive queues over a second.", false},
    {StatisticsEvent::NET_OUT_MSGS_SEC_100MS, "delivered_100ms_messages_per_second", kRate,
     "Rate handed to the application over 100 ms.", false},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC_100MS, "delivered_100ms_peak_messages_per_second", kRate,
     "Highest rate handed to the application over 100 ms.", false},
    {StatisticsEvent::NET_OUT_MSGS_SEC, "delivered_1s_messages_per_second", kRate,
     "Rate handed to the application over a second.", false},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC, "delivered_1s_peak_messages_per_second", kRate,
     "Highest rate handed to the application over a second.", false},
};

std::string sampleName(const Metric& metric) {
    return join({metric.name, metric.isCounter ? "_total" : ""});
}

/// Counters and rates are whole numbers, fill levels come in percent.
std::string valueText(const StatisticsEvent& event, const Metric& metric) {
    const uint64_t value = event.getStat(metric.type);
    if (metric.unit != kRatio)
        return std::to_string(value);
    return tivra_internal::ratioText(value);
}

} // namespace

std::string StatisticsText::json(const StatisticsEvent& event, const Labels& labels) {
    std::string text = tivra_internal::jsonHead(labels);
    for (const Metric& metric : kMetrics)
        text += join({",\"", sampleName(metric), "\":", valueText(event, metric)});
    return text + "}";
}

std::string StatisticsText::openMetrics(const StatisticsEvent& event, const Labels& labels) {
    const std::string pairs = tivra_internal::labelPairs(labels);
    const std::string labelSet = pairs.empty() ? pairs : join({"{", pairs, "}"});
    std::string text;
    for (const Metric& metric : kMetrics) {
        const std::string family = join({kPrefix, metric.name});
        text += join({"# TYPE ", family, metric.isCounter ? " counter\n" : " gauge\n"});
        text += join({"# UNIT ", family, " ", metric.unit, "\n"});
        text += join({"# HELP ", family, " ", metric.help, "\n"});
        text += join({kPrefix, sampleName(metric), labelSet, " ", valueText(event, metric), "\n"});
    }
    return text + "# EOF\n";
}

bool StatisticsText::isLabelName(const std::string& name) noexcept {
    if (name.empty() || name.compare(0, 2, "__") == 0 || (name[0] >= '0' && name[0] <= '9'))
        return false;
    for (const char c : name) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!isLetter && !(c >= '0' && c <= '9') && c != '_')
            return false;
    }
    return true;
}

} // namespace tivra
