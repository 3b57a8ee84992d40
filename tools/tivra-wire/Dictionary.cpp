#include "Dictionary.h"

#include "ExitCode.h"
#include "Input.h"

#include "kvnparse/MapLoader.h"

#include <fmt/format.h>
#include <tp/te_error.h>

#include <string_view>

namespace tivra_wire {

namespace {

std::string textOf(const std::string& file) {
    try {
        Input input(file);
        std::string text;
        char block[65536];
        while (const std::size_t count = input.read(block, sizeof block))
            text.append(block, count);
        return text;
    } catch (const Failure& failure) {
        throw Failure(ExitCode::Usage, fmt::format("the dictionary cannot be loaded: {}", failure.what()));
    }
}

/// The last error of the library without the bytes that it shows behind its first line.
std::string reason() {
    const std::string_view text = tp::te_geterror();
    return std::string(text.substr(0, text.find('\n')));
}

} // namespace

Dictionary::Dictionary(const std::vector<std::string>& files) {
    for (const std::string& file : files)
        load(file);
}

void Dictionary::load(const std::string& file) {
    const KVNAPI::MapLoad load = KVNAPI::loadMapText(&m_map, textOf(file));
    if (load.result != 0)
        throw Failure(ExitCode::Usage, fmt::format("{}:{}: {}", file, load.line, reason()));
}

KVNAPI::Token* Dictionary::find(const std::string& nameOrNumber) const {
    return isNumber(nameOrNumber) ? m_map.lookupTokenViaId(nameOrNumber.c_str())
                                  : m_map.lookupTokenViaName(nameOrNumber);
}

bool Dictionary::isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace tivra_wire
