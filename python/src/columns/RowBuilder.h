#pragma once

#include "columns/Column.h"
#include "columns/HeadColumns.h"
#include "columns/RowBatch.h"
#include "columns/RowHead.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace tivra_python {

/// Gathers rows in columns until they are taken as a batch. Memory is taken as the columns grow, not per row.
/// One thread at a time.
class RowBuilder {
public:
    explicit RowBuilder(std::vector<ColumnSpec> specs);

    /// Adds a column, in which the rows so far have NULL. Batches from now on have it.
    /// @return its number
    std::size_t addColumn(ColumnSpec spec);
    [[nodiscard]] std::size_t columnCount() const noexcept { return m_columns.size(); }
    /// What the column is, of which there must be one.
    [[nodiscard]] const ColumnSpec& spec(std::size_t column) const { return m_columns[column].spec(); }

    /// Begins a row, and ends the one before. Throws std::length_error as Column does.
    void begin(const RowHead& head) { m_head.append(head); }
    /// The value of a column in the row that was begun. Of several for one column the first stays; one that
    /// isn't of the column's type is left out. Both are counted.
    void set(std::size_t column, std::int64_t value) { note(m_columns[column].set(row(), value)); }
    void set(std::size_t column, double value) { note(m_columns[column].set(row(), value)); }
    void set(std::size_t column, std::string_view value) { note(m_columns[column].set(row(), value)); }
    /// The value of a column of times, in nanoseconds since 1970-01-01 00:00 UTC.
    void setTime(std::size_t column, std::int64_t value) { note(m_columns[column].setTime(row(), value)); }
    /// Ends the row; columns that weren't set have NULL in it.
    void end() noexcept {}

    [[nodiscard]] std::size_t rows() const noexcept { return m_head.rows(); }
    /// Memory of the values so far. It looks at each column.
    [[nodiscard]] std::size_t bytes() const noexcept;
    /// Whether the rows must be taken before their texts are too long for one batch.
    [[nodiscard]] bool isFull() const noexcept;

    /// Takes all rows, perhaps none, and starts anew with the same columns; types that were found stay.
    [[nodiscard]] std::shared_ptr<RowBatch> finish();

private:
    [[nodiscard]] std::size_t row() const noexcept { return m_head.rows() - 1; }
    void note(Column::Outcome outcome) noexcept {
        m_repeated += outcome == Column::Outcome::Repeated ? 1 : 0;
        m_mismatched += outcome == Column::Outcome::Mismatched ? 1 : 0;
    }

    HeadColumns m_head;
    std::vector<Column> m_columns;
    std::uint64_t m_repeated = 0;
    std::uint64_t m_mismatched = 0;
};

} // namespace tivra_python
