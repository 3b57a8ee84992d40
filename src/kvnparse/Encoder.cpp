#include "kvnparse/Encoder.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/SetOptions.h"

#include <tp/eprintf.h>

namespace KVNAPI {

int Encoder::optionParser(const char* text) {
    return setOptions(*this, text);
}

std::unique_ptr<Encoder> Encoder::alloc(const char* name, DataMap* map) {
    const encoderFactory_t factory = EncoderList.getName(name);
    if (factory == nullptr)
        return nullptr;
    std::unique_ptr<Encoder> encoder = factory();
    eprintf(EPF_DBUG, "Encoder::alloc: made encoder %s at %p", name, static_cast<void*>(encoder.get()));
    if (encoder == nullptr || encoder->setMetaMap(map) != 0)
        return nullptr;
    return encoder;
}

} // namespace KVNAPI
