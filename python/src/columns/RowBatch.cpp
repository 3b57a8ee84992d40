#include "columns/RowBatch.h"

#include "columns/ArrowExport.h"

namespace tivra_python {

namespace {

const char* formatOf(ColumnType type) noexcept {
    switch (type) {
    case ColumnType::Int64:
        return "l";
    case ColumnType::Double:
        return "g";
    case ColumnType::Found:
    case ColumnType::Text:
        return "u";
    case ColumnType::Time:
        return "tsn:UTC";
    }
    return "n";
}

const void* validityOf(const Bitmap& bitmap, std::size_t nulls) noexcept {
    return nulls == 0 ? nullptr : bitmap.data();
}

ArrowColumn describe(const Column& column) {
    const void* const validity = validityOf(column.validity(), column.nulls());
    ArrowColumn out{column.spec().name,
                    formatOf(column.spec().type),
                    static_cast<std::int64_t>(column.nulls()),
                    {validity, column.numbers().data()},
                    nullptr,
                    true};
    if (column.spec().type == ColumnType::Text)
        out.buffers = {validity, column.offsets().data(), column.text().data()};
    return out;
}

std::vector<ArrowColumn> describe(const HeadColumns& head, const TextDictionary& kinds,
                                  const std::vector<Column>& columns) {
    const std::size_t noTags = head.rows() - head.tags;
    const std::size_t noStatuses = head.rows() - head.statuses;
    std::vector<ArrowColumn> out{
        {"received", "tsn:UTC", 0, {nullptr, head.received.data()}, nullptr, false},
        {"source", "i", 0, {nullptr, head.source.data()}, nullptr, false},
        {"symbol", "i", 0, {nullptr, head.symbol.data()}, &head.symbols, false},
        {"kind", "c", 0, {nullptr, head.kind.data()}, &kinds, false},
        {"tag",
         "l",
         static_cast<std::int64_t>(noTags),
         {validityOf(head.hasTag, noTags), head.tag.data()},
         nullptr,
         true},
        {"status",
         "i",
         static_cast<std::int64_t>(noStatuses),
         {validityOf(head.hasStatus, noStatuses), head.status.data()},
         nullptr,
         true},
        {"gap", "b", 0, {nullptr, head.gap.data()}, nullptr, false},
    };
    for (const Column& column : columns)
        out.push_back(describe(column));
    return out;
}

} // namespace

RowBatch::RowBatch(HeadColumns head, std::vector<Column> columns, std::uint64_t repeated,
                   std::uint64_t mismatched)
    : m_head(std::move(head)), m_columns(std::move(columns)), m_repeated(repeated), m_mismatched(mismatched) {
    for (const std::string_view kind : kRowKinds)
        static_cast<void>(m_kinds.codeOf(kind));
}

std::size_t RowBatch::bytes() const noexcept {
    std::size_t sum = m_head.rows() * RowHead::kBytes + m_head.symbols.text().size();
    for (const Column& column : m_columns)
        sum += column.bytes();
    return sum;
}

void RowBatch::exportArray(ArrowArray* out) const {
    tivra_python::exportArray(describe(m_head, m_kinds, m_columns), static_cast<std::int64_t>(rows()),
                              shared_from_this(), out);
}

void RowBatch::exportSchema(ArrowSchema* out) const {
    tivra_python::exportSchema(describe(m_head, m_kinds, m_columns), out);
}

} // namespace tivra_python
