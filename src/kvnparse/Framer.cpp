#include "kvnparse/Framer.h"

#include "kvnparse/FactoryLists.h"

#include <tp/te_error.h>

namespace KVNAPI {

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
