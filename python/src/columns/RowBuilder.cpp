#include "columns/RowBuilder.h"

#include <algorithm>
#include <utility>

namespace tivra_python {

RowBuilder::RowBuilder(std::vector<ColumnSpec> specs) {
    m_columns.reserve(specs.size());
    for (ColumnSpec& spec : specs)
        m_columns.emplace_back(std::move(spec));
}

std::size_t RowBuilder::addColumn(ColumnSpec spec) {
    m_columns.emplace_back(std::move(spec));
    return m_columns.size() - 1;
}

std::size_t RowBuilder::bytes() const noexcept {
    std::size_t sum = m_head.rows() * RowHead::kBytes + m_head.symbols.text().size();
    for (const Column& column : m_columns)
        sum += column.bytes();
    return sum;
}

bool RowBuilder::isFull() const noexcept {
    return std::any_of(m_columns.begin(), m_columns.end(),
                       [](const Column& column) { return column.isFull(); });
}

std::shared_ptr<RowBatch> RowBuilder::finish() {
    std::vector<Column> next;
    next.reserve(m_columns.size());
    for (Column& column : m_columns) {
        next.emplace_back(column.spec());
        column.complete(m_head.rows());
    }
    return std::make_shared<RowBatch>(std::exchange(m_head, {}), std::exchange(m_columns, std::move(next)),
                                      std::exchange(m_repeated, 0), std::exchange(m_mismatched, 0));
}

} // namespace tivra_python
