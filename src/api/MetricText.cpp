#include "api/MetricText.h"

#include <cstdio>
#include <ctime>

#include <event/StatisticsText.h>
#include <tp/Clock.h>

#include "api/Utf8.h"

namespace tivra_internal {
namespace {

MetricLabels usableOf(const MetricLabels& labels) {
    MetricLabels usable;
    for (const auto& [name, value] : labels) {
        bool isUsable = tivra::StatisticsText::isLabelName(name);
        for (const auto& before : usable)
            isUsable = isUsable && before.first != name;
        if (isUsable)
            usable.emplace_back(name, validUtf8(value));
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

} // namespace

std::string join(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces)
        text += piece;
    return text;
}

std::string ratioText(std::uint64_t percent) {
    return join({std::to_string(percent / 100), ".", std::to_string(100 + percent % 100).substr(1)});
}

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

std::string jsonHead(const MetricLabels& labels) {
    std::string text = join({R"({"time":")", presentTime(), "\""});
    std::string_view before = R"(,"labels":{)";
    for (const auto& [name, value] : usableOf(labels)) {
        text += join({before, "\"", name, R"(":")", jsonEscaped(value), "\""});
        before = ",";
    }
    if (before == ",")
        text += "}";
    return text;
}

std::string labelPairs(const MetricLabels& labels) {
    std::string pairs;
    for (const auto& [name, value] : usableOf(labels))
        pairs += join({pairs.empty() ? "" : ",", name, "=\"", labelEscaped(value), "\""});
    return pairs;
}

} // namespace tivra_internal
