#include "Dictionary.h"

#include "ExitCode.h"
#include "Input.h"

#include "common/Password.h"

#include "dictionary/BootstrapDictionary.h"
#include "dictionary/KVNType.h"
#include "kvnparse/MapLoader.h"

#include <fmt/format.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstdio>
#include <limits>
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

Dictionary::Dictionary(const Options& options) {
    if (!options.hub.host.empty())
        add(fetchDictionary(options.hub,
                            tivra_tools::obtainPassword(options.hub.user, options.hub.passwordFile)));
    for (const std::string& file : options.maps)
        load(file);
}

/// As the library does it: the tokens that it knows before any hub tells them come first, and a number or a
/// name that is taken stays as it is.
void Dictionary::add(const std::vector<HubToken>& tokens) {
    for (const tivra_internal::BootstrapToken& token : tivra_internal::kBootstrapDictionary)
        if (token.number != 0)
            static_cast<void>(addToken(token.number, std::string(token.name), token.typeWord));
    std::size_t left = 0;
    for (const HubToken& token : tokens)
        if (!addToken(token.number, token.name, token.type))
            ++left;
    if (left != 0)
        fmt::print(stderr,
                   "tivra-wire: note: {} tokens of the hub are left out: their name or number cannot be "
                   "used\n",
                   left);
}

/// False for what no dictionary or no map file can hold.
bool Dictionary::addToken(std::int64_t number, const std::string& name, std::string_view typeWord) {
    const bool isControl =
        std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    if (number < 0 || number > std::numeric_limits<int>::max() || name.empty() || isControl ||
        name.find('|') != std::string::npos)
        return false;
    if (const KVNAPI::Token* const known = m_map.lookupTokenViaNum(static_cast<int>(number));
        known != nullptr)
        return name == known->name;
    KVNAPI::Token token;
    token.kvnid = static_cast<int>(number);
    token.name = name.c_str();
    if (const tivra_internal::TypeWord* const type = tivra_internal::findTypeWord(typeWord); type != nullptr)
        token.storage = type->storage & 3U;
    return m_map.addToken(&token) != nullptr;
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
