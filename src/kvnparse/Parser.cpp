#include "kvnparse/Parser.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/SetOptions.h"

namespace KVNAPI {

int Parser::optionParser(const char* text) {
    return setOptions(*this, text);
}

std::unique_ptr<Parser> Parser::alloc(const char* name, DataMap* map, int maxBufferSize) {
    const parserFactory_t factory = ParserList.getName(name);
    if (factory == nullptr)
        return nullptr;
    std::unique_ptr<Parser> parser = factory(maxBufferSize);
    if (parser == nullptr || parser->setMetaMap(map) != 0)
        return nullptr;
    return parser;
}

} // namespace KVNAPI
