#include "reader/FieldTypes.h"

#include "bus/BusError.h"
#include "bus/TimeText.h"
#include "bus/TypeNames.h"

#include <nlohmann/json.hpp>

#include <limits>

namespace tivra_bus {

namespace {

using tivra::Value;

std::optional<double> numberOf(std::string_view text) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (text == "nan")
        return std::numeric_limits<double>::quiet_NaN();
    if (text == "inf")
        return kInfinity;
    if (text == "-inf")
        return -kInfinity;
    return std::nullopt;
}

} // namespace

FieldTypes::FieldTypes(const std::string& dictionary) {
    // A hub may have very many fields, so their order isn't kept, which would compare each with all.
    const nlohmann::json object = nlohmann::json::parse(dictionary, nullptr, false);
    const auto fields = object.find("fields");
    if (!object.is_object() || fields == object.end() || !fields->is_object())
        throw BatchError(R"(the dictionary of the bus: a JSON object with an object "fields" was wanted)");
    for (const auto& [name, type] : fields->items())
        if (type.is_string())
            if (const auto known = typeNamed(type.get<std::string>()))
                m_types.emplace(name, *known);
}

std::optional<Value::Type> FieldTypes::typeOf(const std::string& field) const {
    const auto found = m_types.find(field);
    return found != m_types.end() ? std::optional(found->second) : std::nullopt;
}

Value FieldTypes::valueOf(const std::string& field, const BusValue& value) const {
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return Value::ofInteger(*integer);
    if (const auto* number = std::get_if<double>(&value))
        return Value::ofDouble(*number);
    const std::string& text = std::get<std::string>(value);
    if (const auto found = m_types.find(field); found != m_types.end()) {
        if (found->second == Value::Type::Time)
            if (const auto time = timeOf(text))
                return Value::ofTime(std::chrono::duration<double>(time->time_since_epoch()).count());
        if (found->second == Value::Type::Double)
            if (const auto number = numberOf(text))
                return Value::ofDouble(*number);
    }
    return Value::ofText(text);
}

} // namespace tivra_bus
