#pragma once

#include "Picture.h"

#include <deque>
#include <map>

namespace tivra_top {

/// The last minutes of pictures, so that who comes late sees them too: figures of the whole, states of hubs,
/// and values of symbols. What it keeps is bounded.
class History {
public:
    struct Figures {
        TimePoint time;
        double rate = 0.0;
        std::chrono::nanoseconds decodeP50{0};
        std::chrono::nanoseconds decodeP99{0};
        std::chrono::nanoseconds callbackP99{0};
    };
    struct HubChange {
        TimePoint time;
        std::string hub;
        tivra::HubState state = tivra::HubState::Idle;
    };
    struct Values {
        TimePoint time;
        std::vector<std::optional<double>> numbers; ///< of each cell
    };

    static constexpr std::size_t kMostFigures = 1200;
    static constexpr std::size_t kMostChanges = 500;
    static constexpr std::size_t kMostSymbols = 500;
    static constexpr std::size_t kMostValues = 600;

    void add(const Picture& picture);

    [[nodiscard]] const std::deque<Figures>& figures() const { return m_figures; }
    [[nodiscard]] const std::deque<HubChange>& changes() const { return m_changes; }
    /// Empty for a symbol that is unknown, or beyond the number of those that are kept.
    [[nodiscard]] const std::deque<Values>& valuesOf(const std::string& name) const;

private:
    struct Symbol {
        std::uint64_t updates = 0;
        std::deque<Values> values;
    };

    void addRow(const Row& row, TimePoint now);

    std::deque<Figures> m_figures;
    std::deque<HubChange> m_changes;
    std::map<std::string, tivra::HubState> m_states;
    std::map<std::string, Symbol> m_symbols;
};

} // namespace tivra_top
