#include "kvnparse/Encoder.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/KVNEncoders.h"
#include "kvnparse/SetOptions.h"

#include <tp/eprintf.h>

namespace KVNAPI {
namespace {

constexpr NameFactory<encoderFactory_t>::data kEncoders[] = {
    {"kvn", factory_texts::kTokens, &newKVNencoder},
    {"vkvn", factory_texts::kVerbose, &newVKVNencoder},
};

} // namespace

constinit NameFactory<encoderFactory_t> EncoderList{kEncoders};

void registerEncoder(encoderFactory_t factory, const char* name, const char* desc) {
    EncoderList.registerName(factory, name, desc);
}

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
