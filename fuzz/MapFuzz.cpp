// Arbitrary texts through the loader of map files. A whole text must do what its lines do one by one, and
// what the map holds then must load again.
#include "FuzzCheck.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/MapLoader.h"

#include <tp/te_error.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;

/// Loads without the report on standard error; a sanitizer's report goes by another road.
int loadQuietly(DataMap& map, std::string_view text) {
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    std::FILE* const shown = stderr;
    stderr = nowhere;
    fuzz::ExactBytes bytes(text);
    const int result = loadMap(&map, bytes.data(), static_cast<int>(bytes.size()));
    stderr = shown;
    return result;
}

/// The map as the text of a map file, in the order of the numbers.
std::string asText(DataMap& map) {
    std::map<int, std::string> tokens;
    DataMap::iterator walk(&map);
    while (Token* const token = walk.next()) {
        if (map.lookupTokenViaNum(token->kvnid) != token || map.lookupTokenViaName(token->name) != token ||
            std::string_view(token->sid) != std::to_string(token->kvnid) ||
            token->storage > Token::TY_STRING ||
            (token->priceNormalize && token->storage != Token::TY_DOUBLE))
            std::abort();
        static constexpr const char* STORAGES[] = {"int", "double", "string"};
        std::string& text = tokens[token->kvnid];
        text = "cmd=AddToken|name=" + std::string(token->name) + "|token=" + token->sid +
               "|storage=" + STORAGES[token->storage];
        if (token->hidden)
            text += "|hidden=1";
        if (token->passthrough)
            text += "|passthrough=1";
        if (token->priceNormalize)
            text += "|normalize=1";
        if (const std::string_view shortName = map.getShortName(token); shortName != token->name)
            text.append("\ncmd=AddShortName|name=")
                .append(token->name)
                .append("|shortname=")
                .append(shortName);
    }
    std::string lines;
    for (const auto& [number, text] : tokens)
        lines += text + '\n';
    return lines;
}

int loadLineByLine(DataMap& map, std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (loadQuietly(map, text.substr(0, end == std::string_view::npos ? end : end + 1)) != 0)
            return -1;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    DataMap whole;
    DataMap lines;
    const int result = loadQuietly(whole, text);
    if (result != 0 && *tp::te_geterror() == '\0')
        std::abort();
    fuzz::expectEqual("result", std::to_string(result), std::to_string(loadLineByLine(lines, text)));
    const std::string content = asText(whole);
    fuzz::expectEqual("map of all lines", content, asText(lines));
    DataMap again;
    fuzz::expectEqual("loading the map's text", std::to_string(loadQuietly(again, content)), "0");
    fuzz::expectEqual("map of the map's text", asText(again), content);
    return 0;
}
