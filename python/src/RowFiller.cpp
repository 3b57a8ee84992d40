#include "RowFiller.h"

#include <string_view>

namespace tivra_python {
namespace {

[[nodiscard]] std::vector<ColumnSpec> specsOf(const std::vector<FieldColumn>& columns) {
    std::vector<ColumnSpec> specs;
    for (const FieldColumn& column : columns)
        specs.push_back(column.spec);
    return specs;
}

} // namespace

RowFiller::RowFiller(const RowFields& fields) : m_tag(fields.tag), m_builder(specsOf(fields.columns)) {
    for (const FieldColumn& column : fields.columns) {
        if (column.head != HeadField::None)
            m_headColumns.push_back({m_fields.size(), column.head});
        m_fields.push_back(column.field);
    }
}

void RowFiller::setTag(RowHead& head, const tivra::Value& value) {
    if (value.type() != tivra::Value::Type::Integer)
        return;
    head.tag = value.as<std::int64_t>();
    head.hasTag = true;
}

void RowFiller::set(const HeadColumn& column, const RowHead& head) {
    switch (column.field) {
    case HeadField::Source:
        if (head.source != 0)
            m_builder.set(column.index, std::int64_t{head.source});
        break;
    case HeadField::Symbol:
        if (!head.symbol.empty())
            m_builder.set(column.index, head.symbol);
        break;
    case HeadField::Refresh:
        if (head.kind == RowKind::Refresh)
            m_builder.set(column.index, std::int64_t{1});
        break;
    case HeadField::None:
        break;
    }
}

void RowFiller::set(std::size_t column, const tivra::Value& value) {
    switch (value.type()) {
    case tivra::Value::Type::Integer:
        m_builder.set(column, value.as<std::int64_t>());
        break;
    case tivra::Value::Type::Double:
        m_builder.set(column, value.as<double>());
        break;
    case tivra::Value::Type::Text:
        m_builder.set(column, value.as<std::string_view>());
        break;
    case tivra::Value::Type::Time:
        m_builder.setTime(column,
                          std::chrono::nanoseconds(value.as<tivra::TimePoint>().time_since_epoch()).count());
        break;
    }
}

} // namespace tivra_python
