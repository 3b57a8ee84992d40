#include "RawPairs.h"

#include "ValueText.h"

#include <fmt/format.h>

#include <iterator>

namespace tivra_cat {

namespace {

void pair(std::string& out, int token, const std::string& value) {
    fmt::format_to(std::back_inserter(out), "{}={}|", token, value);
}

} // namespace

void RawPairs::add(const Record& record, std::string& out) {
    if (record.permission != 0)
        pair(out, kPermissionToken, std::to_string(record.permission));
    if (record.source != 0)
        pair(out, tivra::ENUM_SRC_ID, std::to_string(record.source));
    if (!record.symbol.empty())
        pair(out, tivra::SYMBOL_TICKER, printable(record.symbol));
    if (record.tag != 0)
        pair(out, kTagToken, std::to_string(record.tag));
    if (!record.command.empty())
        pair(out, kCommandToken, record.command);
    if (record.isAnswer())
        pair(out, kStatusToken, std::to_string(record.statusCode));
    for (const Field& field : record.fields)
        pair(out, field.token, printable(field.text));
    for (const Alternate& alternate : record.alternates)
        pair(out, alternate.token, printable(alternate.value));
    if (!out.empty() && out.back() == '|')
        out.back() = '\n';
    else
        out.push_back('\n');
}

} // namespace tivra_cat
