#include <event/StatisticsText.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include <event/StatisticsEvent.h>
#include <tp/Clock.h>

#include "api/Utf8.h"

namespace tivra {
namespace {

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
     "Bytes dropped because a receive queue was full or a frame was bad.", true},
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

std::string join(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces)
        text += piece;
    return text;
}

std::string sampleName(const Metric& metric) {
    return join({metric.name, metric.isCounter ? "_total" : ""});
}

/// Counters and rates are whole numbers, fill levels come in percent.
std::string valueText(const StatisticsEvent& event, const Metric& metric) {
    const uint64_t value = event.getStat(metric.type);
    if (metric.unit != kRatio)
        return std::to_string(value);
    return join({std::to_string(value / 100), ".", std::to_string(100 + value % 100).substr(1)});
}

StatisticsText::Labels usableOf(const StatisticsText::Labels& labels) {
    StatisticsText::Labels usable;
    for (const auto& [name, value] : labels) {
        bool isUsable = StatisticsText::isLabelName(name);
        for (const auto& before : usable)
            isUsable = isUsable && before.first != name;
        if (isUsable)
            usable.emplace_back(name, tivra_internal::validUtf8(value));
    }
    return usable;
}

std::string presentTime() {
    const double now = tp::Clock::now();
    const auto seconds = static_cast<std::time_t>(now);
    const int milliseconds = static_cast<int>((now - static_cast<double>(seconds)) * 1000.0);
    std::tm split{};
    static_cast<void>(::gmtime_r(&seconds, &split));
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &split);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", milliseconds);
    return text;
}

/// The text between the quotes of a JSON string.
std::string jsonEscaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += {'\\', c};
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}

/// The text between the quotes of a label's value.
std::string labelEscaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else {
            if (c == '"' || c == '\\')
                out += '\\';
            out += c;
        }
    }
    return out;
}

} // namespace

std::string StatisticsText::json(const StatisticsEvent& event, const Labels& labels) {
    std::string text = join({R"({"time":")", presentTime(), "\""});
    std::string_view before = R"(,"labels":{)";
    for (const auto& [name, value] : usableOf(labels)) {
        text += join({before, "\"", name, R"(":")", jsonEscaped(value), "\""});
        before = ",";
    }
    if (before == ",")
        text += "}";
    for (const Metric& metric : kMetrics)
        text += join({",\"", sampleName(metric), "\":", valueText(event, metric)});
    return text + "}";
}

std::string StatisticsText::openMetrics(const StatisticsEvent& event, const Labels& labels) {
    std::string labelSet;
    for (const auto& [name, value] : usableOf(labels))
        labelSet += join({labelSet.empty() ? "{" : ",", name, "=\"", labelEscaped(value), "\""});
    if (!labelSet.empty())
        labelSet += "}";
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
