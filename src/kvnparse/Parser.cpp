#include "kvnparse/Parser.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/KVNParsers.h"
#include "kvnparse/SetOptions.h"

namespace KVNAPI {
namespace {

constexpr NameFactory<parserFactory_t>::data kParsers[] = {
    {"kvn", factory_texts::kTokens, &newKVNparser},
    {"vkvn", factory_texts::kVerbose, &newVKVNparser},
    {"zkvn", factory_texts::kCompressedTokens, &newZKVNparser},
};

} // namespace

constinit NameFactory<parserFactory_t> ParserList{kParsers};

void registerParser(parserFactory_t factory, const char* name, const char* desc) {
    ParserList.registerName(factory, name, desc);
}

int Parser::parseFrame(bufref, Message*) {
    return 1;
}

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
