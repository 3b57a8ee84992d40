#pragma once

#include "HubModel.h"
#include "OutputQueue.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

/// Merges the updates of each symbol for one client, as it has asked for. Trades and refreshes are never
/// merged: they go out at once, behind what was merged of their symbol. Used by the hub's thread alone.
class Conflator {
public:
    /// Types of conflation, as clients name them. All others merge by the interval.
    static constexpr std::int64_t kJustInTime = 3;           ///< while the client's queue is full
    static constexpr std::int64_t kJustInTimeByInterval = 4; ///< then by the interval

    void setInterval(std::chrono::milliseconds interval) { m_interval = interval; }
    /// `percent` is how full the client's queue has to be for a just-in-time type.
    void setType(std::int64_t type, std::int64_t percent);
    /// What the client reports of its queue. True when just-in-time merging has begun or ended with it.
    bool report(std::int64_t percent);

    [[nodiscard]] bool isJustInTime() const { return m_isBehind; }
    [[nodiscard]] std::int64_t type() const { return m_type; }
    /// Whether updates are to be merged at present.
    [[nodiscard]] bool isMerging() const;

    /// Takes an update in place of the output, or passes it on.
    void update(const SymbolEntry& entry, std::string_view body, FrameKind kind, OutputQueue& output,
                Clock::time_point now);
    /// Moves to the output what is due at `now`; all of it when nothing is to be merged any more.
    void release(OutputQueue& output, Clock::time_point now);
    /// The client has no subscription of the symbol any more.
    void forget(const SymbolEntry& entry) { m_waiting.erase(&entry); }
    [[nodiscard]] bool holdsPlayback() const;
    [[nodiscard]] bool hasWaiting() const { return !m_waiting.empty(); }
    [[nodiscard]] Clock::time_point dueAt() const { return m_due; }

private:
    struct Merged {
        std::vector<std::pair<int, std::string>> pairs; ///< in the order of their first appearance
        FrameKind kind = FrameKind::Update;
    };
    [[nodiscard]] bool isJustInTimeType() const {
        return m_type == kJustInTime || m_type == kJustInTimeByInterval;
    }
    static void append(const Merged& merged, OutputQueue& output);

    std::chrono::milliseconds m_interval{1000};
    std::int64_t m_type = 1;
    std::int64_t m_threshold = 25;
    bool m_isBehind = false;
    std::map<const SymbolEntry*, Merged> m_waiting;
    Clock::time_point m_due{};
};

} // namespace tivra_sim
