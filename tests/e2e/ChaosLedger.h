#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include <tivra_sim/Tokens.h>

#include "Client.h"

namespace history {

/// What an application sees of numbered updates: each hub's come in order and once, and where some are
/// missing, an event has told why.
class Ledger {
public:
    /// Notes an update. The hub stands in its BID, the number in its SEQUENCE.
    void note(const tivra::MessageEvent& event) {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        const SeenMessage update(event);
        const std::string number = update.field(tivra_sim::token::SEQUENCE);
        if (number.empty())
            return;
        const std::int64_t sequence = std::stoll(number);
        const std::string hub = update.field(tivra_sim::token::BID);
        const std::lock_guard lock(m_mutex);
        Line& line = m_lines[{update.symbol, hub}];
        if (sequence <= line.last && m_disorder.empty())
            m_disorder =
                update.symbol + " of hub " + hub + ": " + number + " after " + std::to_string(line.last);
        line.gaps += line.last >= 0 && sequence > line.last + 1;
        line.last = sequence;
    }

    /// The last number of a symbol, from whichever hub; -1 before the first.
    [[nodiscard]] std::int64_t lastOf(const std::string& symbol) const {
        const std::lock_guard lock(m_mutex);
        std::int64_t last = -1;
        for (auto line = m_lines.lower_bound({symbol, ""});
             line != m_lines.end() && line->first.first == symbol; ++line)
            last = std::max(last, line->second.last);
        return last;
    }

    /// The first update that was not in order, empty while there was none.
    [[nodiscard]] std::string disorder() const {
        const std::lock_guard lock(m_mutex);
        return m_disorder;
    }

    struct Gaps {
        std::size_t count = 0;
        std::string where;
        auto operator<=>(const Gaps&) const = default;
    };
    /// The most times that a symbol of a hub had numbers missing since gaps were settled last; `excepted` may
    /// have any. No more than `allowed` are settled by this.
    Gaps settleGaps(const std::string& excepted, std::size_t allowed) {
        const std::lock_guard lock(m_mutex);
        Gaps most;
        for (const auto& [key, line] : m_lines) {
            if (key.first != excepted)
                most = std::max(most, {line.gaps, key.first + " of hub " + key.second});
        }
        for (auto& [key, line] : m_lines)
            line.gaps = most.count <= allowed ? 0 : line.gaps;
        return most;
    }

private:
    struct Line {
        std::int64_t last = -1;
        std::size_t gaps = 0;
    };

    mutable std::mutex m_mutex;                                  ///< guards everything
    std::map<std::pair<std::string, std::string>, Line> m_lines; ///< by symbol and hub
    std::string m_disorder;
};

} // namespace history
