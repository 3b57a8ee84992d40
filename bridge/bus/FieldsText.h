#pragma once

#include "bus/JsonText.h"

#include "common/JsonFields.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tivra_bus {

/// How often a field comes.
template<class Values, class Field>
std::size_t countOf(const Values& values, const Field& field) {
    std::size_t count = 0;
    for (const auto& entry : values)
        count += entry.first == field ? 1U : 0U;
    return count;
}

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
    const std::size_t begin = out.size();
    std::uint64_t seen = 0; // which remainders of the fields' names have come
    out += '{';
    for (const auto& entry : values) {
        const std::string& name = entry.first.name();
        const std::uint64_t bit = std::uint64_t{1} << (reinterpret_cast<std::uintptr_t>(&name) / 16 % 61);
        if ((seen & bit) != 0 && countOf(values, entry.first) > 1) {
            out.resize(begin);
            appendRepeatedFields(out, values);
            return;
        }
        if (seen != 0)
            out += ',';
        seen |= bit;
        appendQuoted(out, name);
        out += ':';
        appendValue(out, entry.second);
    }
    out += '}';
}

} // namespace tivra_bus
