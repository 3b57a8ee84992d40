#include "feed/FeedMetrics.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "api/MetricText.h"

namespace tivra_internal {
namespace {

using tivra::FeedStatistics;
using tivra::HubStatistics;
using tivra::LatencySummary;

struct Count {
    std::string_view name;
    std::string_view help;
    bool isCounter;
    std::uint64_t (*of)(const FeedStatistics&);
};

constexpr Count kCounts[] = {
    {"unwanted_messages", "Messages for which there was no subscription.", true,
     [](const FeedStatistics& figures) { return figures.unwanted; }},
    {"late_answers", "Parts of answers that came after their request had ended.", true,
     [](const FeedStatistics& figures) { return figures.lateAnswers; }},
    {"failed_callbacks", "Exceptions that left a callback.", true,
     [](const FeedStatistics& figures) { return figures.failedCallbacks; }},
    {"slow_callbacks", "Callbacks that took longer than the feed's threshold.", true,
     [](const FeedStatistics& figures) { return figures.slowCallbacks; }},
    {"open_subscriptions", "Subscriptions that are open.", false,
     [](const FeedStatistics& figures) -> std::uint64_t { return figures.subscriptions; }},
    {"open_requests", "Requests that wait for their answer.", false,
     [](const FeedStatistics& figures) -> std::uint64_t { return figures.requests; }},
};

/// A time that is measured of each hub, and of the feed.
struct HubTime {
    std::string_view name;
    std::string_view help;
    LatencySummary HubStatistics::*ofHub;
    LatencySummary FeedStatistics::*ofFeed;
};

constexpr HubTime kHubTimes[] = {
    {"socket_to_decode", "From the read of a message until it was decoded.", &HubStatistics::socketToDecode,
     &FeedStatistics::socketToDecode},
    {"decode_to_callback", "From a decoded message to the call of its callback.",
     &HubStatistics::decodeToCallback, &FeedStatistics::decodeToCallback},
    {"callback", "Time in a callback for an update.", &HubStatistics::callback, &FeedStatistics::callback},
};

constexpr std::string_view kRequestTime = "request_to_answer";
constexpr std::string_view kRequestHelp = "From a request until its answer was complete.";

struct Quantile {
    const char* key;
    const char* quantile;
    std::chrono::nanoseconds LatencySummary::*value;
};

constexpr Quantile kQuantiles[] = {
    {"min", "0.0", &LatencySummary::min},     {"p50", "0.5", &LatencySummary::p50},
    {"p90", "0.9", &LatencySummary::p90},     {"p99", "0.99", &LatencySummary::p99},
    {"p999", "0.999", &LatencySummary::p999}, {"max", "1.0", &LatencySummary::max},
};

[[nodiscard]] std::string secondsText(std::chrono::nanoseconds time) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%lld.%09lld",
                  static_cast<long long>(time.count() / 1'000'000'000),
                  static_cast<long long>(time.count() % 1'000'000'000));
    return text.data();
}

// --- JSON ---

[[nodiscard]] std::string fillText(const HubStatistics& hub) {
    return ratioText(static_cast<std::uint64_t>(std::lround(hub.queueFill * 100.0)));
}

[[nodiscard]] std::string jsonTime(std::string_view name, const LatencySummary& time) {
    std::string text = join({"\"", name, "_seconds\":{\"count\":", std::to_string(time.count)});
    for (const Quantile& quantile : kQuantiles)
        text += join({",\"", quantile.key, "\":", secondsText(time.*quantile.value)});
    return text + "}";
}

[[nodiscard]] std::string jsonHub(const HubStatistics& hub) {
    std::string text = join({R"({"hub":")", jsonEscaped(hub.hub), R"(","updates_total":)",
                             std::to_string(hub.updates), ",\"queue_fill_ratio\":", fillText(hub)});
    for (const HubTime& time : kHubTimes)
        text += join({",", jsonTime(time.name, hub.*time.ofHub)});
    return text + "}";
}

// --- OpenMetrics ---

/// The braces around labels, or nothing where there are none.
[[nodiscard]] std::string braced(std::initializer_list<std::string_view> pairs) {
    std::string text;
    for (const std::string_view pair : pairs)
        if (!pair.empty())
            text += join({text.empty() ? "{" : ",", pair});
    return text.empty() ? text : text + "}";
}

[[nodiscard]] std::string head(std::string_view family, std::string_view type, std::string_view unit,
                               std::string_view help) {
    std::string text = join({"# TYPE ", family, " ", type, "\n"});
    if (!unit.empty())
        text += join({"# UNIT ", family, " ", unit, "\n"});
    return text + join({"# HELP ", family, " ", help, "\n"});
}

[[nodiscard]] std::string sample(std::string_view name, const std::string& labels, std::uint64_t value) {
    return join({name, labels, " ", std::to_string(value), "\n"});
}

[[nodiscard]] std::string samplesOf(std::string_view family, std::string_view labels,
                                    const LatencySummary& time) {
    std::string text;
    for (const Quantile& quantile : kQuantiles) {
        const std::string pair = join({"quantile=\"", quantile.quantile, "\""});
        if (time.count > 0)
            text += join({family, braced({labels, pair}), " ", secondsText(time.*quantile.value), "\n"});
    }
    return text + sample(join({family, "_count"}), braced({labels}), time.count);
}

[[nodiscard]] std::string hubPair(const HubStatistics& hub) {
    return join({"hub=\"", labelEscaped(hub.hub), "\""});
}

[[nodiscard]] std::string hubMetrics(const FeedStatistics& figures, const std::string& own) {
    const std::string updates = "tivra_feed_updates";
    std::string text = head(updates, "counter", "", "Updates handed to subscriptions.");
    for (const HubStatistics& hub : figures.hubs)
        text += sample(updates + "_total", braced({own, hubPair(hub)}), hub.updates);
    const std::string_view fill = "tivra_feed_queue_fill_ratio";
    text += head(fill, "gauge", "ratio", "Fill level of the hub's receive queue.");
    for (const HubStatistics& hub : figures.hubs)
        text += join({fill, braced({own, hubPair(hub)}), " ", fillText(hub), "\n"});
    for (const HubTime& time : kHubTimes) {
        const std::string family = join({"tivra_feed_", time.name, "_seconds"});
        text += head(family, "summary", "seconds", time.help);
        for (const HubStatistics& hub : figures.hubs)
            text += samplesOf(family, join({own, own.empty() ? "" : ",", hubPair(hub)}), hub.*time.ofHub);
    }
    return text;
}

/// Without those that the metrics have themselves.
[[nodiscard]] MetricLabels foreignOf(const MetricLabels& labels) {
    MetricLabels foreign = labels;
    std::erase_if(foreign,
                  [](const auto& label) { return label.first == "hub" || label.first == "quantile"; });
    return foreign;
}

} // namespace

std::string feedJson(const FeedStatistics& figures, const MetricLabels& labels) {
    std::string text = join({jsonHead(labels), ",\"updates_total\":", std::to_string(figures.updates)});
    for (const Count& count : kCounts)
        text += join(
            {",\"", count.name, count.isCounter ? "_total" : "", "\":", std::to_string(count.of(figures))});
    for (const HubTime& time : kHubTimes)
        text += join({",", jsonTime(time.name, figures.*time.ofFeed)});
    text += join({",", jsonTime(kRequestTime, figures.requestToAnswer), ",\"hubs\":["});
    std::string_view before;
    for (const HubStatistics& hub : figures.hubs) {
        text += join({before, jsonHub(hub)});
        before = ",";
    }
    return text + "]}";
}

std::string feedOpenMetrics(const FeedStatistics& figures, const MetricLabels& labels) {
    const std::string own = labelPairs(foreignOf(labels));
    std::string text = hubMetrics(figures, own);
    for (const Count& count : kCounts) {
        const std::string family = join({"tivra_feed_", count.name});
        text += head(family, count.isCounter ? "counter" : "gauge", "", count.help);
        text += sample(count.isCounter ? family + "_total" : family, braced({own}), count.of(figures));
    }
    const std::string family = join({"tivra_feed_", kRequestTime, "_seconds"});
    text += head(family, "summary", "seconds", kRequestHelp);
    return text + samplesOf(family, own, figures.requestToAnswer) + "# EOF\n";
}

} // namespace tivra_internal
