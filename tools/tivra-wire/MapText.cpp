#include "MapText.h"

#include <fmt/format.h>

#include <map>

namespace tivra_wire {

namespace {

std::string linesOf(const KVNAPI::Token& token, std::string_view shortName) {
    static constexpr const char* kStorages[] = {"int", "double", "string"};
    std::string text = fmt::format("cmd=AddToken|name={}|token={}|storage={}", token.name, token.kvnid,
                                   kStorages[token.storage]);
    if (token.hidden)
        text += "|hidden=1";
    if (token.passthrough)
        text += "|passthrough=1";
    if (token.priceNormalize)
        text += "|normalize=1";
    text += '\n';
    if (shortName != token.name)
        text += fmt::format("cmd=AddShortName|name={}|shortname={}\n", token.name, shortName);
    return text;
}

} // namespace

std::string mapText(Dictionary& dictionary) {
    std::map<int, const KVNAPI::Token*> tokens;
    KVNAPI::DataMap::iterator walk(&dictionary.map());
    while (const KVNAPI::Token* const token = walk.next())
        tokens.emplace(token->kvnid, token);
    std::string text;
    for (const auto& [number, token] : tokens)
        text += linesOf(*token, dictionary.map().getShortName(token));
    return text;
}

} // namespace tivra_wire
