#pragma once

#include "bus/FieldNames.h"
#include "bus/JsonText.h"

#include "common/JsonFields.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace tivra_bus {

/// The fields of a message of which one comes more than once: its values are in an array.
template<class Values>
void appendRepeatedFields(std::string& out, const Values& values) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto& entry : values) {
        std::string text;
        appendValue(text, entry.second);
        tivra_tools::putField(object, entry.first.name(), nlohmann::ordered_json::parse(text));
    }
    out += object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// The fields of a tivra::Update or tivra::Record as a JSON object.
template<class Values>
void appendFields(std::string& out, const Values& values) {
    FieldNames& names = FieldNames::ofThread();
    names.begin();
    const std::size_t begin = out.size();
    for (const auto& entry : values) {
        const std::string_view name = names.next(entry.first.name());
        if (name.empty()) {
            out.resize(begin);
            appendRepeatedFields(out, values);
            return;
        }
        out += name;
        appendValue(out, entry.second);
    }
    // In place of the first one's comma.
    if (out.size() == begin)
        out += '{';
    else
        out[begin] = '{';
    out += '}';
}

} // namespace tivra_bus
