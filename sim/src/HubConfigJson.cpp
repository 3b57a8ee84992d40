#include "HubConfigJson.h"

#include <array>
#include <limits>
#include <utility>

namespace tivra_sim {

namespace {

using namespace json_reading;

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

Tls readTls(const json& value, const std::string& where) {
    Tls tls;
    const auto pathReader = [](std::string& path) {
        return [&path](const json& v, const std::string& w) { path = textOf(v, w); };
    };
    readObject(
        value, where,
        {{"certificateFile", pathReader(tls.certificateFile)},
         {"keyFile", pathReader(tls.keyFile)},
         {"clientCaFile", pathReader(tls.clientCaFile)},
         {"isOldVersion", [&](const json& v, const std::string& w) { tls.isOldVersion = boolOf(v, w); }}});
    if (tls.certificateFile.empty() && (!tls.keyFile.empty() || !tls.clientCaFile.empty()))
        fail(inside(where, "certificateFile"), "is missing");
    return tls;
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
                        const std::string& w) { playback.repeat = static_cast<unsigned>(intOf(v, w, 0)); }},
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

/// In the order of the enumeration.
constexpr std::array<const char*, 5> kFlushes{"batch", "frame", "block", "rarely", "full"};

Flush readFlush(const json& value, const std::string& where) {
    const std::string word = textOf(value, where);
    for (std::size_t i = 0; i < kFlushes.size(); ++i) {
        if (word == kFlushes[i])
            return static_cast<Flush>(i);
    }
    fail(where, "must be \"batch\", \"frame\", \"block\", \"rarely\" or \"full\", not \"" + word + "\"");
}

Reader textReader(std::string& target) {
    return [&target](const json& value, const std::string& where) { target = wireTextOf(value, where); };
}

} // namespace

std::map<std::string, Reader> hubReaders(HubConfig& config) {
    const auto limit = [](std::size_t& target) {
        return [&target](const json& v, const std::string& w) {
            target = static_cast<std::size_t>(integerOf(v, w, 1, std::numeric_limits<std::int64_t>::max()));
        };
    };
    return {
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
        {"compressionLevel",
         [&](const json& v, const std::string& w) { config.compressionLevel = intOf(v, w, 0, 9); }},
        {"compressionFlush",
         [&](const json& v, const std::string& w) { config.compressionFlush = readFlush(v, w); }},
        {"conflation", [&](const json& v, const std::string& w) { config.conflation = boolOf(v, w); }},
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
        {"tls", [&](const json& v, const std::string& w) { config.tls = readTls(v, w); }},
        {"outputLimit", limit(config.outputLimit)},
        {"requestLogLimit", limit(config.requestLogLimit)}};
}

HubConfig baseOf(const json& value, const std::string& where) {
    if (!value.is_object())
        fail(where, "must be an object");
    if (!value.contains("base"))
        return HubConfig::realistic();
    const std::string place = inside(where, "base");
    const std::string base = textOf(value["base"], place);
    if (base == "realistic")
        return HubConfig::realistic();
    if (base == "empty")
        return HubConfig::empty();
    fail(place, "must be \"realistic\" or \"empty\", not \"" + base + "\"");
}

namespace {

ordered systemRecordJson(const SystemRecord& record) {
    return {{"enabled", record.enabled}, {"intervalMs", record.interval.count()}};
}

ordered tlsJson(const Tls& tls) {
    return {{"certificateFile", tls.certificateFile},
            {"keyFile", tls.keyFile},
            {"clientCaFile", tls.clientCaFile},
            {"isOldVersion", tls.isOldVersion}};
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
    const json value = parsed(text);
    HubConfig config = baseOf(value, "");
    readObject(value, "", hubReaders(config));
    return config;
}

HubConfig HubConfig::fromJsonFile(const std::string& path) {
    return readFile(path, [](const std::string& text) { return fromJson(text); });
}

ordered hubJson(const HubConfig& config, HubConfig::Passwords passwords) {
    return {{"base", "empty"},
            {"bindAddress", config.bindAddress},
            {"port", config.port},
            {"advertisedHost", config.advertisedHost},
            {"hubVersion", config.hubVersion},
            {"dictionaryVersion", config.dictionaryVersion},
            {"topology", config.topology == Topology::Aggregating ? "aggregating" : "single-instance"},
            {"users", usersJson(config.users, passwords)},
            {"boxPermissions", config.boxPermissions},
            {"compression", config.compression},
            {"compressionLevel", config.compressionLevel},
            {"compressionFlush", kFlushes[static_cast<std::size_t>(config.compressionFlush)]},
            {"conflation", config.conflation},
            {"heartbeat", systemRecordJson(config.heartbeat)},
            {"hubStatus", systemRecordJson(config.hubStatus)},
            {"playback", playbackJson(config.playback)},
            {"refreshOnSubscribe", config.refreshOnSubscribe},
            {"outputLimit", config.outputLimit},
            {"requestLogLimit", config.requestLogLimit},
            {"tls", tlsJson(config.tls)},
            {"symbols", symbolsJson(config.symbols)},
            {"enumerations", enumerationsJson(config.enumerations)},
            {"dictionary", dictionaryJson(config.dictionary)}};
}

std::string HubConfig::toJson(Passwords passwords) const {
    return hubJson(*this, passwords).dump(2, ' ', false, ordered::error_handler_t::replace);
}

} // namespace tivra_sim
