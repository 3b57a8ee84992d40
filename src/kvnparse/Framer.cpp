#include "kvnparse/Framer.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/FrameHelper.h"
#include "kvnparse/KVNVerify.h"
#include "kvnparse/NLVerify.h"

#include <tp/te_error.h>

namespace KVNAPI {
namespace {

template<class Verify>
std::unique_ptr<Framer> newFrameHelper(int maxBufferSize) {
    return std::make_unique<FrameHelper<Verify>>(maxBufferSize);
}

constexpr NameFactory<framerFactory_t>::data kFramers[] = {
    {"newline", "new line separated (useful for vkvn messages)", &newFrameHelper<NLVerify>},
    {"kvn", factory_texts::kTokens, &newFrameHelper<KVNVerify>},
};

} // namespace

constinit NameFactory<framerFactory_t> FramerList{kFramers};

void registerFramer(framerFactory_t factory, const char* name, const char* desc) {
    FramerList.registerName(factory, name, desc);
}

std::unique_ptr<Framer> Framer::alloc(const char* name, int maxBufferSize) {
    const framerFactory_t factory = FramerList.getName(name);
    if (factory == nullptr)
        return nullptr;
    std::unique_ptr<Framer> framer = factory(maxBufferSize);
    if (framer == nullptr)
        tp::te_error("Error initializing framer class '%s'", name);
    return framer;
}

} // namespace KVNAPI
