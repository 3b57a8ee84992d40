#include "kvnparse/MapLoader.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/MapCommands.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace KVNAPI {

namespace {

constexpr int kMaxLine = 32768;

/// Every pull takes one line, so that the count of pulls is the number of the line.
MapLoad loadLines(Parser& parser, DataMap* commands, DataMap* map) {
    Message command;
    for (MapLoad load{0, 1, false};; ++load.line) {
        const int pulled = parser.pull(&command);
        if (pulled > 0)
            return load;
        load.isRefused = pulled == 0 && runMapCommand(commands, &command, map) != 0;
        if (pulled < 0 || load.isRefused) {
            load.result = -1;
            return load;
        }
    }
}

} // namespace

MapLoad loadMapText(DataMap* map, std::string_view text) {
    constexpr MapLoad failed{-1, 0, false};
    DataMap commands;
    if (text.empty())
        return {};
    if (buildLoadMap(&commands) != 0)
        return failed;
    const std::unique_ptr<Parser> parser = Parser::alloc("vkvn", &commands, kMaxLine);
    if (parser == nullptr)
        return failed;
    std::string ended;
    // The parser waits for the end of a line, which the last one may lack.
    if (text.back() != '\n') {
        ended.reserve(text.size() + 1);
        ended.append(text) += '\n';
        text = ended;
    }
    parser->push(bufref(text.data(), text.size()));
    return loadLines(*parser, &commands, map);
}

int loadMap(DataMap* map, const char* data, int len) {
    if (len <= 0)
        return 0;
    const MapLoad load = loadMapText(map, {data, static_cast<std::size_t>(len)});
    if (load.isRefused)
        std::fprintf(stderr, "%s\n", tp::te_geterror());
    return load.result;
}

} // namespace KVNAPI
