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

constexpr int MAX_LINE = 32768;

int loadLines(Parser& parser, DataMap* commands, DataMap* map) {
    Message line;
    for (;;) {
        const int result = parser.pull(&line);
        if (result < 0)
            return -1;
        if (result > 0)
            return 0;
        if (runMapCommand(commands, &line, map) != 0) {
            std::fprintf(stderr, "%s\n", tp::te_geterror());
            return -1;
        }
    }
}

} // namespace

int loadMap(DataMap* map, const char* data, int len) {
    if (len <= 0)
        return 0;
    DataMap commands;
    if (buildLoadMap(&commands) != 0)
        return -1;
    const std::unique_ptr<Parser> parser = Parser::alloc("vkvn", &commands, MAX_LINE);
    if (parser == nullptr)
        return -1;
    const std::string_view text(data, static_cast<std::size_t>(len));
    std::string ended;
    bufref bytes(text.data(), text.size());
    // The parser waits for the end of a line, which the last one may lack.
    if (text.back() != '\n') {
        ended.reserve(text.size() + 1);
        ended.append(text) += '\n';
        bytes = bufref(ended.data(), ended.size());
    }
    parser->push(bytes);
    return loadLines(*parser, &commands, map);
}

} // namespace KVNAPI
