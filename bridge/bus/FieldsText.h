#pragma once

#include "bus/JsonText.h"

#include "common/JsonFields.h"

#include <nlohmann/json.hpp>

#include <string>

namespace tivra_bus {

/// The fields of a tivra::Update or tivra::Record as a JSON object; the values of a field that comes more
/// than once are in an array.
template<class Values>
void appendFields(std::string& out, const Values& values) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto& entry : values) {
        std::string text;
        appendValue(text, entry.second);
        tivra_tools::putField(object, entry.first.name(), nlohmann::ordered_json::parse(text));
    }
    out += object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace tivra_bus
