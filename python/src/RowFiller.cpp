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

RowFiller::RowFiller(const std::vector<FieldColumn>& columns) : m_builder(specsOf(columns)) {
    for (const FieldColumn& column : columns)
        m_fields.push_back(column.field);
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
