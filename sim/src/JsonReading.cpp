#include "JsonReading.h"

#include <fstream>
#include <sstream>

namespace tivra_sim::json_reading {

void fail(const std::string& where, const std::string& what) {
    throw ConfigError((where.empty() ? "configuration" : "\"" + where + "\"") + ": " + what);
}

std::string inside(const std::string& where, const std::string& key) {
    return where.empty() ? key : where + "." + key;
}

std::string at(const std::string& where, std::size_t index) {
    return where + "[" + std::to_string(index) + "]";
}

std::string textOf(const json& value, const std::string& where) {
    if (!value.is_string())
        fail(where, "must be a text");
    return value.get<std::string>();
}

std::string wireTextOf(const json& value, const std::string& where) {
    std::string text = value.is_number() ? value.dump() : textOf(value, where);
    if (text.find_first_of("|\x03") != std::string::npos)
        fail(where, "must not hold \"|\" or the byte 03");
    return text;
}

bool boolOf(const json& value, const std::string& where) {
    if (!value.is_boolean())
        fail(where, "must be true or false");
    return value.get<bool>();
}

std::int64_t integerOf(const json& value, const std::string& where, std::int64_t low, std::int64_t high) {
    const bool fits =
        value.is_number_integer() &&
        (!value.is_number_unsigned() ||
         value.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    const std::int64_t number = fits ? value.get<std::int64_t>() : 0;
    if (!fits || number < low || number > high)
        fail(where, "must be a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return number;
}

int intOf(const json& value, const std::string& where, int low, int high) {
    return static_cast<int>(integerOf(value, where, low, high));
}

const json& arrayOf(const json& value, const std::string& where) {
    if (!value.is_array())
        fail(where, "must be a list");
    return value;
}

void readObject(const json& value, const std::string& where, const std::map<std::string, Reader>& readers) {
    if (!value.is_object())
        fail(where, "must be an object");
    for (const auto& [key, child] : value.items()) {
        const auto reader = readers.find(key);
        if (reader == readers.end()) {
            std::string known;
            for (const auto& entry : readers)
                known += (known.empty() ? "" : ", ") + entry.first;
            fail(inside(where, key), "unknown key; known here: " + known);
        }
        reader->second(child, inside(where, key));
    }
}

std::set<int> sourcesOf(const json& value, const std::string& where) {
    std::set<int> sources;
    for (std::size_t i = 0; i < arrayOf(value, where).size(); ++i)
        sources.insert(intOf(value[i], at(where, i), 1));
    return sources;
}

json parsed(std::string_view text) {
    try {
        return json::parse(text);
    } catch (const json::exception& error) { // a number that none can hold is no parse_error
        throw ConfigError(std::string("configuration is not JSON: ") + error.what());
    }
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw ConfigError("cannot open the configuration file \"" + path + "\"");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace tivra_sim::json_reading
