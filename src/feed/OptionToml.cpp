#include "feed/OptionFile.h"

#include <algorithm>
#include <cstdint>

#define TOML_HEADER_ONLY 1
#include <toml++/toml.h>

#include "feed/OptionSetter.h"

namespace tivra_internal {
namespace {

[[nodiscard]] std::string placeOf(const std::string& path, const toml::source_region& region) {
    return path + ':' + std::to_string(region.begin.line);
}

/// The text by which a URL or a variable would give the value.
[[nodiscard]] std::string textOf(const toml::node& value, const std::string& where) {
    if (const auto text = value.value_exact<std::string>())
        return *text;
    if (const auto whole = value.value_exact<std::int64_t>())
        return std::to_string(*whole);
    if (const auto flag = value.value_exact<bool>())
        return *flag ? "true" : "false";
    refuseOptionAt(where, "a value is neither a text, a whole number, true, false nor a list of hosts");
}

[[nodiscard]] std::string listOf(const toml::array& list, const std::string& where) {
    std::string joined;
    for (const toml::node& member : list) {
        const auto text = member.value_exact<std::string>();
        if (!text)
            refuseOptionAt(where, "a member of the list is no text");
        joined.append(joined.empty() ? "" : ",").append(*text);
    }
    return joined;
}

/// Parts of what stands at the fault may be in its description, which is no good for a password.
[[nodiscard]] std::string describe(const toml::parse_error& error, std::string_view text) {
    std::size_t begin = 0;
    for (toml::source_index line = 1; line < error.source().begin.line && begin < text.size(); ++line)
        begin = std::min(text.find('\n', begin), text.size() - 1) + 1;
    const std::string_view rest = text.substr(std::min(begin, text.size()));
    const bool isSecret = rest.substr(0, rest.find('\n')).find("password") != std::string_view::npos;
    return isSecret ? "there is no TOML from here on" : std::string(error.description());
}

} // namespace

void readToml(std::string_view text, const std::string& path, OptionSetter& setter) {
    toml::table table;
    try {
        table = toml::parse(text, path);
    } catch (const toml::parse_error& error) {
        refuseOptionAt(placeOf(path, error.source()), describe(error, text), "give TOML");
    }
    for (const auto& [key, value] : table) {
        const std::string where = placeOf(path, key.source());
        if (const toml::array* const list = value.as_array())
            setter.set(key.str(), listOf(*list, where), where, OptionSetter::Form::List);
        else
            setter.set(key.str(), textOf(value, where), where);
    }
}

} // namespace tivra_internal
