#pragma once

#include "captures/FieldDictionary.h"

#include <string>
#include <tuple>
#include <vector>

namespace tivra_python {

/// The fields of a dictionary as Python has them: number, name, type word.
using FieldRows = std::vector<std::tuple<int, std::string, std::string>>;

[[nodiscard]] inline std::vector<DictionaryField> fieldsOfRows(const FieldRows& rows) {
    std::vector<DictionaryField> fields;
    fields.reserve(rows.size());
    for (const auto& [number, name, type] : rows)
        fields.push_back({number, name, type});
    return fields;
}

[[nodiscard]] inline FieldRows rowsOfFields(const std::vector<DictionaryField>& fields) {
    FieldRows rows;
    rows.reserve(fields.size());
    for (const DictionaryField& field : fields)
        rows.emplace_back(field.number, field.name, field.type);
    return rows;
}

} // namespace tivra_python
