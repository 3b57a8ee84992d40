#include "Dictionary.h"

#include "ExitCode.h"

#include "kvnparse/MapCommands.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <fmt/format.h>
#include <tp/te_error.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>

namespace tivra_wire {

namespace {

std::string textOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream)
        throw Failure(ExitCode::Usage, fmt::format("cannot read the map file {}", file));
    if (!text.empty() && text.back() != '\n')
        text += '\n';
    return text;
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
    const std::string text = textOf(file);
    KVNAPI::DataMap commands;
    std::unique_ptr<KVNAPI::Parser> parser;
    if (KVNAPI::buildLoadMap(&commands) == 0)
        parser = KVNAPI::Parser::alloc("vkvn", &commands, static_cast<int>(text.size()) + 1);
    if (parser == nullptr)
        throw std::logic_error(reason());
    parser->push(KVNAPI::bufref(text.data(), text.size()));
    // Every pull takes one line, so that the count of pulls is the number of the line.
    KVNAPI::Message command;
    for (int line = 1;; ++line) {
        const int result = parser->pull(&command);
        if (result > 0)
            return;
        if (result < 0 || KVNAPI::runMapCommand(&commands, &command, &m_map) != 0)
            throw Failure(ExitCode::Usage, fmt::format("{}:{}: {}", file, line, reason()));
    }
}

KVNAPI::Token* Dictionary::find(const std::string& nameOrNumber) const {
    if (KVNAPI::Token* const token = m_map.lookupTokenViaName(nameOrNumber); token != nullptr)
        return token;
    const bool isNumber =
        !nameOrNumber.empty() && nameOrNumber.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? m_map.lookupTokenViaId(nameOrNumber.c_str()) : nullptr;
}

} // namespace tivra_wire
