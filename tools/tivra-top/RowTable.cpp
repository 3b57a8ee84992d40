#include "RowTable.h"

namespace tivra_top {

namespace {

/// So long a number that has moved is shown as such.
constexpr std::chrono::seconds kShown{2};

} // namespace

void RowTable::put(Row row, TimePoint now) {
    Entry& entry = m_entries[row.name];
    entry.movedAt.resize(row.cells.size());
    entry.row.cells.resize(row.cells.size());
    for (std::size_t i = 0; i < row.cells.size(); ++i) {
        const Cell& before = entry.row.cells[i];
        Cell& cell = row.cells[i];
        cell.move = before.move;
        if (!before.number || !cell.number || *before.number == *cell.number)
            continue;
        cell.move = *cell.number > *before.number ? 1 : -1;
        entry.movedAt[i] = now;
    }
    entry.row = std::move(row);
}

std::vector<Row> RowTable::rows(TimePoint now) {
    std::vector<Row> rows;
    rows.reserve(m_entries.size());
    for (auto& [name, entry] : m_entries) {
        entry.row.rate = entry.meter.take(now, entry.row.updates);
        for (std::size_t i = 0; i < entry.movedAt.size(); ++i)
            if (now - entry.movedAt[i] >= kShown)
                entry.row.cells[i].move = 0;
        rows.push_back(entry.row);
    }
    return rows;
}

} // namespace tivra_top
