#include "PageFeed.h"

#include <nlohmann/json.hpp>

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
    return {{"name", hub.status.hub},
            {"state", nameOf(hub.status.to)},
            {"cause", hub.status.cause},
            {"rate", std::round(hub.rate)},
            {"p50", microseconds(latency.p50)},
            {"p99", microseconds(latency.p99)},
            {"queued", microseconds(hub.statistics.decodeToCallback.p99)},
            {"fill", std::round(hub.statistics.queueFill * 100.0)}};
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
            {"gaps", picture.gaps ? json(*picture.gaps) : json()},
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

PageFeed::Version PageFeed::versionOf(const Row& row) {
    Version version{row.updates, row.gaps, row.state, std::round(row.rate), {}};
    for (const Cell& cell : row.cells)
        version.cells.push_back(cell.text);
    return version;
}

std::vector<std::string> PageFeed::takeGone() {
    const std::unordered_set<std::string_view> present = namesIn(m_picture);
    std::vector<std::string> gone;
    for (auto each = m_sent.begin(); each != m_sent.end();) {
        if (present.count(each->first) > 0) {
            ++each;
            continue;
        }
        gone.push_back(each->first);
        each = m_sent.erase(each);
    }
    return gone;
}

std::vector<const Row*> PageFeed::takeChanged(bool wantsAll) {
    std::vector<const Row*> changed;
    for (const Row& row : m_picture.rows) {
        auto sent = m_sent.find(row.name);
        const bool isNew = sent == m_sent.end();
        if (isNew && m_sent.size() >= kMostRows)
            continue;
        if (isNew)
            sent = m_sent.emplace(row.name, Version{}).first;
        Version version = versionOf(row);
        if (isNew || wantsAll || !(sent->second == version))
            changed.push_back(&row);
        sent->second = std::move(version);
    }
    return changed;
}

std::string PageFeed::next(Picture picture) {
    const bool hasNewColumns = picture.columns != m_picture.columns;
    m_history.add(picture);
    m_picture = std::move(picture);
    const std::vector<std::string> gone = takeGone();
    const std::vector<const Row*> changed = takeChanged(hasNewColumns);
    json change = frameOf(m_picture);
    std::string frame = textOf(change);
    if (changed.empty() && gone.empty() && frame == m_frame)
        return {};
    m_frame = std::move(frame);
    change["gone"] = gone;
    change["rows"] = json::array();
    for (const Row* row : changed)
        change["rows"].push_back(jsonOf(*row));
    change["figures"] = jsonOf(m_history.figures().back());
    return textOf(change);
}

std::string PageFeed::everything() const {
    json all = frameOf(m_picture);
    all["rows"] = json::array();
    for (const Row& row : m_picture.rows)
        if (m_sent.count(row.name) > 0)
            all["rows"].push_back(jsonOf(row));
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
