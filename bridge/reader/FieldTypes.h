#pragma once

#include "bus/BusRecord.h"

#include <feed/Value.h>

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tivra_bus {

/// What the dictionary says of fields, by which values get the types that the hub gave them.
class FieldTypes {
public:
    /// Knows nothing: values have the types of their JSON.
    FieldTypes() = default;
    /// @throws BatchError for a text that isn't a dictionary
    explicit FieldTypes(const std::string& dictionary);

    /// Nothing for a field that isn't in the dictionary.
    [[nodiscard]] std::optional<tivra::Value::Type> typeOf(const std::string& field) const;
    /// The value, whose text is that of `value`.
    [[nodiscard]] tivra::Value valueOf(const std::string& field, const BusValue& value) const;

private:
    std::unordered_map<std::string, tivra::Value::Type> m_types;
};

} // namespace tivra_bus
