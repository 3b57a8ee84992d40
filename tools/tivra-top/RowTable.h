#pragma once

#include "Picture.h"
#include "RateMeter.h"

#include <map>

namespace tivra_top {

/// The rows by their names, with what can be seen only over time: their rates, and which numbers have moved.
class RowTable {
public:
    /// Replaces the row of that name, or adds it; its rate and its moves are worked out here.
    void put(Row row, TimePoint now);
    /// All rows as they are now.
    [[nodiscard]] std::vector<Row> rows(TimePoint now);
    [[nodiscard]] std::size_t size() const { return m_entries.size(); }
    [[nodiscard]] bool has(const std::string& name) const { return m_entries.count(name) > 0; }

private:
    struct Entry {
        Row row;
        RateMeter meter;
        std::vector<TimePoint> movedAt; ///< of each cell
    };

    std::map<std::string, Entry> m_entries;
};

} // namespace tivra_top
