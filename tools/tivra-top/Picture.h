#pragma once

#include <feed/ConnectionEvent.h>
#include <feed/HubStatistics.h>
#include <feed/Subscription.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace tivra_top {

using TimePoint = std::chrono::system_clock::time_point;

/// One value of a row.
struct Cell {
    std::string text; ///< printable
    std::optional<double> number;
    int move = 0; ///< 1 or -1 for a while after the number has risen or fallen
};

/// A symbol.
struct Row {
    std::string name; ///< "100:IBM"
    tivra::DataState state = tivra::DataState::Pending;
    std::optional<TimePoint> lastUpdate;
    std::uint64_t updates = 0;
    std::uint64_t gaps = 0;
    double rate = 0.0; ///< updates a second
    std::vector<Cell> cells;
};

/// A hub.
struct HubLine {
    tivra::HubStatus status;
    tivra::HubStatistics statistics;
    double rate = 0.0; ///< updates a second
};

/// A line of the library's log.
struct LogEntry {
    TimePoint time;
    bool isWarning = false;
    std::string text; ///< printable
};

/// All that there is to see at one moment, whoever shows it.
struct Picture {
    TimePoint time;
    std::string title;
    tivra::FeedState state = tivra::FeedState::Connecting;
    double rate = 0.0; ///< updates a second of all hubs
    std::uint64_t updates = 0;
    std::optional<std::uint64_t> gaps; ///< of all rows, nothing where nobody counts them
    std::uint64_t leftOut = 0;         ///< updates of symbols for which there is no room
    tivra::LatencySummary socketToDecode;
    tivra::LatencySummary decodeToCallback;
    std::vector<std::string> columns; ///< names of the cells of each row
    std::vector<Row> rows;
    std::vector<HubLine> hubs; ///< empty where none is known
    std::vector<LogEntry> log;
};

/// "Established".
[[nodiscard]] const char* nameOf(tivra::FeedState state);
[[nodiscard]] const char* nameOf(tivra::HubState state);
/// "live".
[[nodiscard]] const char* nameOf(tivra::DataState state);
/// Of its rows, for as long as they stay.
[[nodiscard]] std::unordered_set<std::string_view> namesIn(const Picture& picture);
/// Whether values of a row are old.
[[nodiscard]] bool isStale(tivra::DataState state);

} // namespace tivra_top
