#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "RecordingApp.h"

namespace chaos {

/// What an application sees of numbered updates: each hub's come in order and once, and where some are
/// missing, an event has told why.
class Ledger {
public:
    /// Notes an update. The hub stands in its BID, the number in its SEQUENCE.
    void note(const tivra::MessageEvent& event);

    /// The last number of a symbol, from whichever hub; -1 before the first.
    [[nodiscard]] std::int64_t lastOf(const std::string& symbol) const;
    /// The first update that was not in order, empty while there was none.
    [[nodiscard]] std::string disorder() const;
    struct Gaps {
        std::size_t count = 0;
        std::string where;
        auto operator<=>(const Gaps&) const = default;
    };
    /// The most times that a symbol of a hub had numbers missing since gaps were settled last; `excepted` may
    /// have any. No more than `allowed` are settled by this.
    Gaps settleGaps(const std::string& excepted, std::size_t allowed);
    [[nodiscard]] std::size_t updates() const;

private:
    struct Line {
        std::int64_t last = -1;
        std::size_t gaps = 0;
    };

    mutable std::mutex m_mutex;                                  ///< guards everything
    std::map<std::pair<std::string, std::string>, Line> m_lines; ///< by symbol and hub
    std::string m_disorder;
    std::size_t m_updates = 0;
};

} // namespace chaos
