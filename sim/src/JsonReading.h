#pragma once

#include "tivra_sim/HubConfig.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>

/// Reads JSON values with ranges and names, so that a wrong one is told with the place where it stands. All
/// of it throws ConfigError.
namespace tivra_sim::json_reading {

using nlohmann::json;
using ordered = nlohmann::ordered_json;

[[noreturn]] void fail(const std::string& where, const std::string& what);
[[nodiscard]] std::string inside(const std::string& where, const std::string& key);
[[nodiscard]] std::string at(const std::string& where, std::size_t index);

[[nodiscard]] std::string textOf(const json& value, const std::string& where);
/// A text that goes into bodies, where "|" and 03 have a meaning of their own.
[[nodiscard]] std::string wireTextOf(const json& value, const std::string& where);
[[nodiscard]] bool boolOf(const json& value, const std::string& where);
[[nodiscard]] std::int64_t integerOf(const json& value, const std::string& where, std::int64_t low,
                                     std::int64_t high);
[[nodiscard]] int intOf(const json& value, const std::string& where,
                        int low = std::numeric_limits<int>::min(),
                        int high = std::numeric_limits<int>::max());
[[nodiscard]] const json& arrayOf(const json& value, const std::string& where);
[[nodiscard]] std::set<int> sourcesOf(const json& value, const std::string& where);

/// What to do with a key's value, told where the value stands.
using Reader = std::function<void(const json&, const std::string&)>;

/// Calls the reader of each key of an object; a key without one is refused, with those that exist.
void readObject(const json& value, const std::string& where, const std::map<std::string, Reader>& readers);

template<class Element, class Read>
Reader listReader(std::vector<Element>& list, Read read) {
    return [&list, read](const json& value, const std::string& where) {
        list.clear();
        for (std::size_t i = 0; i < arrayOf(value, where).size(); ++i)
            list.push_back(read(value[i], at(where, i)));
    };
}

[[nodiscard]] json parsed(std::string_view text);
[[nodiscard]] std::string contentOf(const std::string& path);

/// Reads a file with `read`, whose errors then name it.
template<class Read>
auto readFile(const std::string& path, Read read) {
    const std::string text = contentOf(path);
    try {
        return read(text);
    } catch (const ConfigError& error) {
        throw ConfigError(path + ": " + error.what());
    }
}

} // namespace tivra_sim::json_reading
