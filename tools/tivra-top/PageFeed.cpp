#include "PageFeed.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace tivra_top {

namespace {

using nlohmann::json;

std::int64_t milliseconds(TimePoint time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

double microseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / 1e3;
}

json jsonOf(const Row& row) {
    json cells = json::array();
    for (const Cell& cell : row.cells)
        cells.push_back(cell.text);
    return {{"name", row.name},
            {"state", nameOf(row.state)},
            {"isStale", isStale(row.state)},
            {"rate", std::round(row.rate)},
            {"time", row.lastUpdate ? json(milliseconds(*row.lastUpdate)) : json()},
            {"cells", cells}};
}

json jsonOf(const HubLine& hub) {
    const tivra::LatencySummary& latency = hub.statistics.socketToDecode;
    return {{"name", hub.status.hub},           {"state", nameOf(hub.status.to)},
            {"cause", hub.status.cause},        {"rate", std::round(hub.rate)},
            {"p50", microseconds(latency.p50)}, {"p99", microseconds(latency.p99)}};
}

json jsonOf(const History::Figures& figures) {
    return {milliseconds(figures.time), std::round(figures.rate), microseconds(figures.decodeP50),
            microseconds(figures.decodeP99), microseconds(figures.callbackP99)};
}

/// All of a picture but its rows and its time.
json frameOf(const Picture& picture) {
    json hubs = json::array();
    for (const HubLine& hub : picture.hubs)
        hubs.push_back(jsonOf(hub));
    json log = json::array();
    for (const LogEntry& entry : picture.log)
        log.push_back(
            {{"time", milliseconds(entry.time)}, {"isWarning", entry.isWarning}, {"text", entry.text}});
    return {{"title", picture.title},
            {"state", nameOf(picture.state)},
            {"gaps", picture.gaps},
            {"leftOut", picture.leftOut},
            {"columns", picture.columns},
            {"symbols", picture.rows.size()},
            {"hubs", hubs},
            {"log", log}};
}

std::string textOf(const json& object) {
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

std::string PageFeed::next(Picture picture) {
    m_history.add(picture);
    m_picture = std::move(picture);
    json rows = json::array();
    for (std::size_t i = 0; i < std::min(m_picture.rows.size(), kMostRows); ++i) {
        const Row& row = m_picture.rows[i];
        const Version version{row.updates, row.gaps, row.state, std::round(row.rate)};
        if (Version& sent = m_sent[row.name]; !(sent == version)) {
            sent = version;
            rows.push_back(jsonOf(row));
        }
    }
    json change = frameOf(m_picture);
    std::string frame = textOf(change);
    if (rows.empty() && frame == m_frame)
        return {};
    m_frame = std::move(frame);
    change["rows"] = std::move(rows);
    change["figures"] = jsonOf(m_history.figures().back());
    return textOf(change);
}

std::string PageFeed::everything() const {
    json all = frameOf(m_picture);
    all["rows"] = json::array();
    for (std::size_t i = 0; i < std::min(m_picture.rows.size(), kMostRows); ++i)
        all["rows"].push_back(jsonOf(m_picture.rows[i]));
    all["history"] = json::array();
    for (const History::Figures& figures : m_history.figures())
        all["history"].push_back(jsonOf(figures));
    all["changes"] = json::array();
    for (const History::HubChange& change : m_history.changes())
        all["changes"].push_back({milliseconds(change.time), change.hub, nameOf(change.state)});
    all["now"] = milliseconds(m_picture.time);
    return textOf(all);
}

std::string PageFeed::symbol(const std::string& name) const {
    json points = json::array();
    for (const History::Values& values : m_history.valuesOf(name)) {
        json point = {milliseconds(values.time)};
        for (const std::optional<double>& number : values.numbers)
            point.push_back(number ? json(*number) : json());
        points.push_back(std::move(point));
    }
    return textOf({{"name", name}, {"columns", m_picture.columns}, {"points", points}});
}

} // namespace tivra_top
