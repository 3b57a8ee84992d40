#include "feed/OptionFile.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#define TOML_HEADER_ONLY 1
#include <toml++/impl/preprocessor.h>

namespace {

/// The library that reads TOML has met what it takes for impossible.
struct NoToml {};

[[noreturn]] void refuseToml() {
    throw NoToml();
}

} // namespace

// It would end the process, or go on at random: some wrong files lead there.
#undef TOML_ASSERT
#undef TOML_ASSERT_ASSUME
#define TOML_ASSERT(expression) ((expression) ? static_cast<void>(0) : refuseToml())
#define TOML_ASSERT_ASSUME(expression) TOML_ASSERT(expression)
#include <toml++/toml.h>

#include "feed/OptionSetter.h"

namespace tivra_internal {
namespace {

[[nodiscard]] std::string placeOf(const std::string& path, const toml::source_region& region) {
    return path + ':' + std::to_string(region.begin.line);
}

constexpr char kMark = '~';

/// The text in ASCII: a mark and two digits stand for each byte beyond it, and for the mark. The library that
/// reads TOML runs into what it takes for impossible where letters beyond ASCII stand outside of texts, and
/// refuses a mark there.
[[nodiscard]] std::string inAscii(std::string_view text) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string ascii;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && c != kMark)
            ascii += c;
        else
            ascii.append({kMark, kDigits[byte >> 4U], kDigits[byte & 0xFU]});
    }
    return ascii;
}

/// What inAscii() was made of.
[[nodiscard]] std::string asItWas(std::string_view ascii) {
    std::string text;
    for (std::size_t i = 0; i < ascii.size(); ++i) {
        unsigned byte = 0;
        const char* const digits = ascii.data() + i + 1;
        const bool isMarked = ascii[i] == kMark && i + 2 < ascii.size() &&
                              std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
        text += isMarked ? static_cast<char>(byte) : ascii[i];
        i += isMarked ? 2 : 0;
    }
    return text;
}

/// The text by which a URL or a variable would give the value.
[[nodiscard]] std::string textOf(const toml::node& value, const std::string& where) {
    if (const auto text = value.value_exact<std::string>())
        return asItWas(*text);
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
        joined.append(joined.empty() ? "" : ",").append(asItWas(*text));
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

/// Options have no tables, and the library that reads TOML takes for granted that their heads are well
/// formed.
void refuseTables(std::string_view text, const std::string& path) {
    for (std::size_t line = 1, begin = 0; begin < text.size(); ++line) {
        const std::size_t first = text.find_first_not_of(" \t", begin);
        if (first != std::string_view::npos && text[first] == '[')
            refuseOptionAt(path + ':' + std::to_string(line), "a table can't be meant there",
                           "give options alone, and lists on the line of their name");
        begin = std::min(text.find('\n', begin), text.size() - 1) + 1;
    }
}

} // namespace

void readToml(std::string_view text, const std::string& path, OptionSetter& setter) {
    constexpr std::string_view kByteOrder = "\xEF\xBB\xBF"; // which an editor may put first
    if (text.substr(0, kByteOrder.size()) == kByteOrder)
        text.remove_prefix(kByteOrder.size());
    refuseTables(text, path);
    toml::table table;
    try {
        table = toml::parse(inAscii(text), path);
    } catch (const toml::parse_error& error) {
        refuseOptionAt(placeOf(path, error.source()), describe(error, text), "give TOML");
    } catch (const NoToml&) {
        refuseOptionAt(path, "there is no TOML in it", "give a name, = and a value in each line");
    }
    for (const auto& [key, value] : table) {
        const std::string where = placeOf(path, key.source());
        const std::string name = asItWas(key.str());
        if (const toml::array* const list = value.as_array())
            setter.set(name, listOf(*list, where), where, OptionSetter::Form::List);
        else
            setter.set(name, textOf(value, where), where);
    }
}

} // namespace tivra_internal
