#include "run/DictionaryText.h"

#include <feed/Record.h>
#include <feed/Snapshot.h>

#include <nlohmann/json.hpp>

#include <map>

namespace tivra_bus {

namespace {

const char* nameOf(tivra::Value::Type type) {
    switch (type) {
    case tivra::Value::Type::Integer:
        return "integer";
    case tivra::Value::Type::Double:
        return "double";
    case tivra::Value::Type::Text:
        return "text";
    case tivra::Value::Type::Time:
        return "time";
    }
    return "";
}

} // namespace

std::string dictionaryText(tivra::Feed& feed) {
    std::map<std::string, std::string> types; // in order, so that the same dictionary has the same text
    const tivra::Snapshot fields = feed.list(tivra::ListOf::Fields).get();
    for (const tivra::Record& record : fields.records())
        for (const auto& [field, value] : record)
            if (field.name() == "KVN.TOKEN.NAME" && value.type() == tivra::Value::Type::Text)
                if (const auto name = value.as<std::string>(); const auto type = feed.typeOf(name))
                    types[name] = nameOf(*type);
    return nlohmann::json{{"tivra", 1}, {"fields", types}}.dump(-1, ' ', false,
                                                                nlohmann::json::error_handler_t::replace);
}

} // namespace tivra_bus
