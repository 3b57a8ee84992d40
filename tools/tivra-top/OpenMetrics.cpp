#include "OpenMetrics.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace tivra_top {

namespace {

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':';
}

/// The length of a set of labels with its braces, in whose values a backslash takes the next character along;
/// 0 without an end.
std::size_t labelsLength(std::string_view text) {
    bool isQuoted = false;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (isQuoted && text[i] == '\\')
            ++i;
        else if (text[i] == '"')
            isQuoted = !isQuoted;
        else if (!isQuoted && text[i] == '}')
            return i + 1;
    }
    return 0;
}

std::optional<Metric> metricOf(std::string_view line) {
    Metric metric;
    const auto* const end = std::find_if_not(line.begin(), line.end(), isNameCharacter);
    metric.name.assign(line.begin(), end);
    line.remove_prefix(metric.name.size());
    if (!line.empty() && line.front() == '{') {
        const std::size_t length = labelsLength(line);
        metric.labels = std::string(line.substr(0, length));
        line.remove_prefix(length);
    }
    if (metric.name.empty() || line.size() < 2 || line.front() != ' ')
        return std::nullopt;
    line.remove_prefix(1);
    line = line.substr(0, line.find(' ')); // a timestamp may follow
    const auto [next, error] = std::from_chars(line.data(), line.data() + line.size(), metric.value);
    if (error != std::errc{} || next != line.data() + line.size() || !std::isfinite(metric.value))
        return std::nullopt;
    metric.text = std::string(line);
    return metric;
}

} // namespace

std::vector<Metric> parseOpenMetrics(std::string_view text, std::size_t most, std::size_t& faults) {
    std::vector<Metric> metrics;
    faults = 0;
    while (!text.empty() && metrics.size() < most) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (line.empty() || line.front() == '#')
            continue;
        if (std::optional<Metric> metric = metricOf(line))
            metrics.push_back(std::move(*metric));
        else
            ++faults;
    }
    return metrics;
}

} // namespace tivra_top
