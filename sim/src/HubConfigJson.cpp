#include "tivra_sim/HubConfig.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <utility>

namespace tivra_sim {

namespace {

using nlohmann::json;
using ordered = nlohmann::ordered_json;

[[noreturn]] void fail(const std::string& where, const std::string& what) {
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

/// A text that goes into bodies, where "|" and 03 have a meaning of their own.
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

int intOf(const json& value, const std::string& where, int low = std::numeric_limits<int>::min(),
          int high = std::numeric_limits<int>::max()) {
    return static_cast<int>(integerOf(value, where, low, high));
}

const json& arrayOf(const json& value, const std::string& where) {
    if (!value.is_array())
        fail(where, "must be a list");
    return value;
}

/// What to do with a key's value, told where the value stands.
using Reader = std::function<void(const json&, const std::string&)>;

/// Calls the reader of each key of an object; a key without one is refused, with those that exist.
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

int keyNumber(const std::string& key, const std::string& where) {
    if (key.empty() || key.size() > 9 || key.find_first_not_of("0123456789") != std::string::npos)
        fail(where, "must be named by a token number");
    return std::stoi(key);
}

User readUser(const json& value, const std::string& where) {
    User user;
    readObject(
        value, where,
        {{"name", [&](const json& v, const std::string& w) { user.name = wireTextOf(v, w); }},
         {"password", [&](const json& v, const std::string& w) { user.password = wireTextOf(v, w); }},
         {"permissions", [&](const json& v, const std::string& w) { user.permissions = sourcesOf(v, w); }},
         {"maxLogins", [&](const json& v, const std::string& w) {
              user.maxLogins = static_cast<unsigned>(intOf(v, w, 0));
          }}});
    if (user.name.empty())
        fail(inside(where, "name"), "is missing");
    return user;
}

SystemRecord readSystemRecord(const json& value, const std::string& where, SystemRecord record) {
    readObject(value, where,
               {{"enabled", [&](const json& v, const std::string& w) { record.enabled = boolOf(v, w); }},
                {"intervalMs", [&](const json& v, const std::string& w) {
                     record.interval = std::chrono::milliseconds(integerOf(v, w, 1, 86400000));
                 }}});
    return record;
}

Symbol readSymbol(const json& value, const std::string& where) {
    Symbol symbol;
    const auto readFields = [&](const json& v, const std::string& w) {
        if (!v.is_object())
            fail(w, "must be an object of token numbers and values");
        for (const auto& [key, field] : v.items())
            symbol.fields[keyNumber(key, inside(w, key))] = wireTextOf(field, inside(w, key));
    };
    readObject(value, where,
               {{"source", [&](const json& v, const std::string& w) { symbol.source = intOf(v, w, 1); }},
                {"symbol", [&](const json& v, const std::string& w) { symbol.symbol = wireTextOf(v, w); }},
                {"fields", readFields}});
    if (symbol.source == 0)
        fail(inside(where, "source"), "is missing");
    if (symbol.symbol.empty())
        fail(inside(where, "symbol"), "is missing");
    return symbol;
}

DictionaryRow readRow(const json& value, const std::string& where) {
    DictionaryRow row;
    readObject(value, where,
               {{"number", [&](const json& v, const std::string& w) { row.number = intOf(v, w, 1); }},
                {"name", [&](const json& v, const std::string& w) { row.name = wireTextOf(v, w); }},
                {"type", [&](const json& v, const std::string& w) { row.type = wireTextOf(v, w); }},
                {"length", [&](const json& v, const std::string& w) { row.length = intOf(v, w, 0); }}});
    if (row.number == 0)
        fail(inside(where, "number"), "is missing");
    if (row.name.empty())
        fail(inside(where, "name"), "is missing");
    if (row.type.empty())
        fail(inside(where, "type"), "is missing");
    return row;
}

Enumeration readEnumeration(const json& value, const std::string& where) {
    Enumeration enumeration;
    const auto readValues = [&](const json& v, const std::string& w) {
        for (std::size_t i = 0; i < arrayOf(v, w).size(); ++i) {
            int number = 0;
            std::string text;
            readObject(
                v[i], at(w, i),
                {{"value", [&](const json& n, const std::string& place) { number = intOf(n, place); }},
                 {"text", [&](const json& t, const std::string& place) { text = wireTextOf(t, place); }}});
            enumeration.values[number] = text;
        }
    };
    readObject(value, where,
               {{"token", [&](const json& v, const std::string& w) { enumeration.token = intOf(v, w, 1); }},
                {"values", readValues}});
    if (enumeration.token == 0)
        fail(inside(where, "token"), "is missing");
    return enumeration;
}

double readSpeed(const json& value, const std::string& where) {
    if (value.is_string() && value.get<std::string>() == "full")
        return 0.0;
    if (!value.is_number() || !(value.get<double>() > 0.0))
        fail(where, "must be \"full\" or a factor above 0, where 1 is the pace of the day");
    return value.get<double>();
}

Playback readPlayback(const json& value, const std::string& where, Playback playback) {
    const auto count = [](const json& v, const std::string& w) {
        return static_cast<std::size_t>(integerOf(v, w, 0, std::numeric_limits<std::int64_t>::max()));
    };
    readObject(
        value, where,
        {{"file", [&](const json& v, const std::string& w) { playback.file = textOf(v, w); }},
         {"source", [&](const json& v, const std::string& w) { playback.source = intOf(v, w, 1); }},
         {"speed", [&](const json& v, const std::string& w) { playback.factor = readSpeed(v, w); }},
         {"startWhenSubscriptions",
          [&](const json& v, const std::string& w) { playback.startWhenSubscriptions = count(v, w); }},
         {"maxEvents", [&](const json& v, const std::string& w) { playback.maxEvents = count(v, w); }},
         {"repeat", [&](const json& v,
                        const std::string& w) { playback.repeat = static_cast<unsigned>(intOf(v, w, 1)); }},
         {"midnight", [&](const json& v, const std::string& w) {
              playback.midnight = integerOf(v, w, 0, 253402300799);
          }}});
    return playback;
}

Topology readTopology(const json& value, const std::string& where) {
    const std::string word = textOf(value, where);
    if (word == "single-instance")
        return Topology::SingleInstance;
    if (word == "aggregating")
        return Topology::Aggregating;
    fail(where, "must be \"single-instance\" or \"aggregating\", not \"" + word + "\"");
}

template<class Element>
Reader listReader(std::vector<Element>& list, Element (*read)(const json&, const std::string&)) {
    return [&list, read](const json& value, const std::string& where) {
        list.clear();
        for (std::size_t i = 0; i < arrayOf(value, where).size(); ++i)
            list.push_back(read(value[i], at(where, i)));
    };
}

Reader textReader(std::string& target) {
    return [&target](const json& value, const std::string& where) { target = wireTextOf(value, where); };
}

void readConfig(const json& value, HubConfig& config) {
    const auto limit = [](std::size_t& target) {
        return [&target](const json& v, const std::string& w) {
            target = static_cast<std::size_t>(integerOf(v, w, 1, std::numeric_limits<std::int64_t>::max()));
        };
    };
    const std::map<std::string, Reader> readers{
        {"base", [](const json&, const std::string&) {}},
        {"bindAddress", textReader(config.bindAddress)},
        {"port",
         [&](const json& v, const std::string& w) {
             config.port = static_cast<std::uint16_t>(intOf(v, w, 0, 65535));
         }},
        {"advertisedHost", textReader(config.advertisedHost)},
        {"hubVersion", textReader(config.hubVersion)},
        {"dictionaryVersion", textReader(config.dictionaryVersion)},
        {"dictionary", listReader(config.dictionary, readRow)},
        {"enumerations", listReader(config.enumerations, readEnumeration)},
        {"users", listReader(config.users, readUser)},
        {"boxPermissions",
         [&](const json& v, const std::string& w) { config.boxPermissions = sourcesOf(v, w); }},
        {"topology", [&](const json& v, const std::string& w) { config.topology = readTopology(v, w); }},
        {"compression", [&](const json& v, const std::string& w) { config.compression = boolOf(v, w); }},
        {"heartbeat",
         [&](const json& v, const std::string& w) {
             config.heartbeat = readSystemRecord(v, w, config.heartbeat);
         }},
        {"hubStatus",
         [&](const json& v, const std::string& w) {
             config.hubStatus = readSystemRecord(v, w, config.hubStatus);
         }},
        {"symbols", listReader(config.symbols, readSymbol)},
        {"playback",
         [&](const json& v, const std::string& w) { config.playback = readPlayback(v, w, config.playback); }},
        {"refreshOnSubscribe",
         [&](const json& v, const std::string& w) { config.refreshOnSubscribe = boolOf(v, w); }},
        {"outputLimit", limit(config.outputLimit)},
        {"requestLogLimit", limit(config.requestLogLimit)}};
    readObject(value, "", readers);
}

HubConfig baseOf(const json& value) {
    if (!value.is_object())
        fail("", "must be an object");
    if (!value.contains("base"))
        return HubConfig::realistic();
    const std::string base = textOf(value["base"], "base");
    if (base == "realistic")
        return HubConfig::realistic();
    if (base == "empty")
        return HubConfig::empty();
    fail("base", "must be \"realistic\" or \"empty\", not \"" + base + "\"");
}

ordered systemRecordJson(const SystemRecord& record) {
    return {{"enabled", record.enabled}, {"intervalMs", record.interval.count()}};
}

ordered dictionaryJson(const std::vector<DictionaryRow>& dictionary) {
    ordered list = ordered::array();
    for (const DictionaryRow& row : dictionary)
        list.push_back(
            {{"number", row.number}, {"name", row.name}, {"type", row.type}, {"length", row.length}});
    return list;
}

ordered enumerationsJson(const std::vector<Enumeration>& enumerations) {
    ordered list = ordered::array();
    for (const Enumeration& enumeration : enumerations) {
        ordered values = ordered::array();
        for (const auto& [value, text] : enumeration.values)
            values.push_back({{"value", value}, {"text", text}});
        list.push_back({{"token", enumeration.token}, {"values", values}});
    }
    return list;
}

ordered usersJson(const std::vector<User>& users, HubConfig::Passwords passwords) {
    ordered list = ordered::array();
    for (const User& user : users) {
        ordered entry{{"name", user.name}};
        if (passwords == HubConfig::Passwords::Show)
            entry["password"] = user.password;
        entry["permissions"] = user.permissions;
        entry["maxLogins"] = user.maxLogins;
        list.push_back(std::move(entry));
    }
    return list;
}

ordered symbolsJson(const std::vector<Symbol>& symbols) {
    ordered list = ordered::array();
    for (const Symbol& symbol : symbols) {
        ordered fields = ordered::object();
        for (const auto& [token, text] : symbol.fields)
            fields[std::to_string(token)] = text;
        list.push_back({{"source", symbol.source}, {"symbol", symbol.symbol}, {"fields", fields}});
    }
    return list;
}

ordered playbackJson(const Playback& playback) {
    return {{"file", playback.file},
            {"source", playback.source},
            {"speed", playback.factor > 0.0 ? ordered(playback.factor) : ordered("full")},
            {"startWhenSubscriptions", playback.startWhenSubscriptions},
            {"maxEvents", playback.maxEvents},
            {"repeat", playback.repeat},
            {"midnight", playback.midnight}};
}

} // namespace

HubConfig HubConfig::fromJson(std::string_view text) {
    json value;
    try {
        value = json::parse(text);
    } catch (const json::parse_error& error) {
        throw ConfigError(std::string("configuration is not JSON: ") + error.what());
    }
    HubConfig config = baseOf(value);
    readConfig(value, config);
    return config;
}

HubConfig HubConfig::fromJsonFile(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw ConfigError("cannot open the configuration file \"" + path + "\"");
    std::ostringstream text;
    text << file.rdbuf();
    try {
        return fromJson(text.str());
    } catch (const ConfigError& error) {
        throw ConfigError(path + ": " + error.what());
    }
}

std::string HubConfig::toJson(Passwords passwords) const {
    const ordered value{{"base", "empty"},
                        {"bindAddress", bindAddress},
                        {"port", port},
                        {"advertisedHost", advertisedHost},
                        {"hubVersion", hubVersion},
                        {"dictionaryVersion", dictionaryVersion},
                        {"topology", topology == Topology::Aggregating ? "aggregating" : "single-instance"},
                        {"users", usersJson(users, passwords)},
                        {"boxPermissions", boxPermissions},
                        {"compression", compression},
                        {"heartbeat", systemRecordJson(heartbeat)},
                        {"hubStatus", systemRecordJson(hubStatus)},
                        {"playback", playbackJson(playback)},
                        {"refreshOnSubscribe", refreshOnSubscribe},
                        {"outputLimit", outputLimit},
                        {"requestLogLimit", requestLogLimit},
                        {"symbols", symbolsJson(symbols)},
                        {"enumerations", enumerationsJson(enumerations)},
                        {"dictionary", dictionaryJson(dictionary)}};
    return value.dump(2, ' ', false, ordered::error_handler_t::replace);
}

} // namespace tivra_sim
