#include "RowTable.h"

#include <utility>

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

void RowTable::replaceAll(std::vector<Row> rows, TimePoint now) {
    std::map<std::string, Entry> before = std::exchange(m_entries, {});
    for (Row& row : rows) {
        if (auto known = before.extract(row.name))
            m_entries.insert(std::move(known));
        put(std::move(row), now);
    }
}

void RowTable::measure(TimePoint then) {
    for (auto& [name, entry] : m_entries)
        entry.rate = entry.meter.take(then, entry.row.updates);
}

std::vector<Row> RowTable::rows(TimePoint now) {
    std::vector<Row> rows;
    rows.reserve(m_entries.size());
    for (auto& [name, entry] : m_entries) {
        entry.row.rate = entry.rate;
        for (std::size_t i = 0; i < entry.movedAt.size(); ++i)
            if (now - entry.movedAt[i] >= kShown)
                entry.row.cells[i].move = 0;
        rows.push_back(entry.row);
    }
    return rows;
}

} // namespace tivra_top
