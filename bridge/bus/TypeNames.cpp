#include "bus/TypeNames.h"

#include <array>
#include <utility>

namespace tivra_bus {

namespace {

using tivra::Value;

constexpr std::array kNames{std::pair("integer", Value::Type::Integer),
                            std::pair("double", Value::Type::Double), std::pair("text", Value::Type::Text),
                            std::pair("time", Value::Type::Time)};

} // namespace

const char* nameOf(Value::Type type) {
    for (const auto& [name, known] : kNames)
        if (known == type)
            return name;
    return "";
}

std::optional<Value::Type> typeNamed(std::string_view name) {
    for (const auto& [known, type] : kNames)
        if (name == known)
            return type;
    return std::nullopt;
}

} // namespace tivra_bus
