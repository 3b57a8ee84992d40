#pragma once

#include <feed/Value.h>

#include <optional>
#include <string_view>

namespace tivra_bus {

/// "integer", "double", "text" or "time".
[[nodiscard]] const char* nameOf(tivra::Value::Type type);
/// Nothing for another name.
[[nodiscard]] std::optional<tivra::Value::Type> typeNamed(std::string_view name);

} // namespace tivra_bus
