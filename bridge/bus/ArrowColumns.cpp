#include "bus/ArrowColumns.h"

#include "bus/RecordColumns.h"
#include "bus/TypeNames.h"
#include "bus/ValidText.h"

namespace tivra_bus {

namespace {

using tivra::Value;

ArrowKind kindOf(Value::Type type) {
    switch (type) {
    case Value::Type::Integer:
        return ArrowKind::Int64;
    case Value::Type::Double:
        return ArrowKind::Double;
    case Value::Type::Time:
        return ArrowKind::Time;
    case Value::Type::Text:
        break;
    }
    return ArrowKind::Text;
}

} // namespace

ArrowColumns::ArrowColumns() {
    for (const RecordColumnType& each : kRecordColumns)
        addColumn(each.name, each.name, each.kind, false);
}

std::size_t ArrowColumns::of(const std::string& name, Value::Type type) {
    // Messages of one kind have the same fields in the same order.
    std::size_t found = m_last != kNone ? m_fields[m_last].next : kNone;
    if (found == kNone || m_fields[found].place != &name || m_fields[found].type != type) {
        found = find(name, type);
        if (m_last != kNone)
            m_fields[m_last].next = found;
    }
    m_last = found;
    return m_fields[found].column;
}

std::size_t ArrowColumns::find(const std::string& name, Value::Type type) {
    const auto [place, isNew] = m_byPlace.try_emplace({&name, type}, m_fields.size());
    if (isNew)
        m_fields.push_back({&name, type, columnOf(name, type), kNone});
    return place->second;
}

std::size_t ArrowColumns::columnOf(const std::string& name, Value::Type type) {
    const auto [place, isNew] = m_byName.try_emplace({name, type}, 0);
    if (isNew) {
        const std::string field = validText(name);
        const std::string other = field + ':' + nameOf(type);
        place->second = addColumn(field, m_names.count(field) == 0 ? field : other, kindOf(type), false);
    }
    return place->second;
}

std::size_t ArrowColumns::listOf(std::size_t column) {
    if (m_lists[column] == kNone) {
        const ArrowColumnType& type = m_columns[column]->type();
        const std::size_t list =
            addColumn(type.field.empty() ? type.name : type.field, type.name + "[]", type.kind, true);
        m_lists[column] = list;
    }
    return m_lists[column];
}

std::size_t ArrowColumns::addColumn(const std::string& field, const std::string& wanted, ArrowKind kind,
                                    bool isList) {
    // Programs ask for columns by their names, so none is there twice.
    std::string name = wanted;
    for (int i = 2; !m_names.insert(name).second; ++i)
        name = wanted + ':' + std::to_string(i);
    m_columns.push_back(std::make_unique<ArrowColumn>(
        ArrowColumnType{name, name == field ? std::string() : field, kind, isList}));
    m_lists.push_back(kNone);
    return m_columns.size() - 1;
}

} // namespace tivra_bus
