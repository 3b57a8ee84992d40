#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <utility>

namespace tivra_tools {

/// Puts a field of a message into an object. A name that comes again turns its value into an array, so that
/// nothing gets lost.
inline void putField(nlohmann::ordered_json& object, const std::string& name, nlohmann::ordered_json value) {
    const auto found = object.find(name);
    if (found == object.end())
        object[name] = std::move(value);
    else if (found->is_array())
        found->push_back(std::move(value));
    else
        *found = nlohmann::ordered_json::array({*found, std::move(value)});
}

} // namespace tivra_tools
