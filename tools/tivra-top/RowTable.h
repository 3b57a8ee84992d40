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
    /// The same for rows that are all there are: others go.
    void replaceAll(std::vector<Row> rows, TimePoint now);
    /// Takes the rates from the counts that the rows had at that time.
    void measure(TimePoint then);
    /// All rows as they are now.
    [[nodiscard]] std::vector<Row> rows(TimePoint now);

private:
    struct Entry {
        Row row;
        RateMeter meter;
        double rate = 0.0;
        std::vector<TimePoint> movedAt; ///< of each cell
    };

    std::map<std::string, Entry> m_entries;
};

} // namespace tivra_top
