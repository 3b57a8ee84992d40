#include "JsonLines.h"

#include "ValueText.h"

#include "common/JsonFields.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <cstdint>

namespace tivra_cat {

namespace {

using Json = nlohmann::ordered_json;
using tivra_tools::putField;

Json valueOf(const Field& field) {
    switch (field.type) {
    case tivra::INT64: {
        std::int64_t number = 0;
        std::from_chars(field.text.data(), field.text.data() + field.text.size(), number);
        return number;
    }
    case tivra::DOUBLE:
        return field.number;
    case tivra::DATETIME:
        return dateTimeText(field.number, 'T') + "Z";
    default:
        return field.text;
    }
}

} // namespace

void JsonLines::add(const Record& record, std::string& out) {
    Json line;
    line["type"] = typeName(record.type);
    line["received"] = dateTimeText(record.received, 'T') + "Z";
    if (record.source != 0)
        line["source"] = record.source;
    if (!record.symbol.empty())
        line["symbol"] = record.symbol;
    if (record.permission != 0)
        line["permission"] = record.permission;
    if (record.tag != 0)
        line["tag"] = record.tag;
    if (!record.identifier.empty())
        line["identifier"] = record.identifier;
    if (!record.command.empty())
        line["command"] = record.command;
    if (record.isAnswer()) {
        line["status"] = record.statusCode;
        line["name"] = record.statusText;
    }
    if (!record.alternates.empty()) {
        Json& alternates = line["alternates"] = Json::object();
        for (const Alternate& alternate : record.alternates)
            putField(alternates, alternate.name, alternate.value);
    }
    Json& fields = line["fields"] = Json::object();
    for (const Field& field : record.fields)
        putField(fields, *field.name, valueOf(field));
    out += line.dump(-1, ' ', false, Json::error_handler_t::replace);
    out += '\n';
}

} // namespace tivra_cat
