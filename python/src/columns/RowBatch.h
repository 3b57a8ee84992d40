#pragma once

#include "columns/ArrowAbi.h"
#include "columns/Column.h"
#include "columns/HeadColumns.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace tivra_python {

/// Rows that are complete and never change again once others have them. Shared: what was exported of it keeps
/// it alive, whatever becomes of the feed or the file that it came from.
/// @thread any
class RowBatch : public std::enable_shared_from_this<RowBatch> {
public:
    RowBatch(HeadColumns head, std::vector<Column> columns, std::uint64_t repeated, std::uint64_t mismatched);

    [[nodiscard]] std::size_t rows() const noexcept { return m_head.rows(); }
    [[nodiscard]] const HeadColumns& head() const noexcept { return m_head; }
    [[nodiscard]] const std::vector<Column>& columns() const noexcept { return m_columns; }
    /// Memory of the values, in bytes.
    [[nodiscard]] std::size_t bytes() const noexcept;
    /// Values that were left out because their row had one of the same field already.
    [[nodiscard]] std::uint64_t repeated() const noexcept { return m_repeated; }
    /// Values that are NULL because they weren't of their column's type.
    [[nodiscard]] std::uint64_t mismatched() const noexcept { return m_mismatched; }

    /// Notes that messages are missing in front of the first row, of which there must be one. Before others
    /// have the batch.
    void markGapAtStart() noexcept { m_head.gap.set(0); }

    /// Fills a structure whose holder releases it; as often as wanted, and without a copy of the values. The
    /// array is a struct array, whose children are the columns.
    void exportArray(ArrowArray* out) const;
    void exportSchema(ArrowSchema* out) const;

private:
    HeadColumns m_head;
    const std::vector<Column> m_columns;
    const std::uint64_t m_repeated;
    const std::uint64_t m_mismatched;
    TextDictionary m_kinds;
};

} // namespace tivra_python
