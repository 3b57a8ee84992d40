#include "kvnparse/FactoryLists.h"

#include "kvnparse/FrameHelper.h"
#include "kvnparse/KVNEncoders.h"
#include "kvnparse/KVNParsers.h"
#include "kvnparse/KVNVerify.h"
#include "kvnparse/NLVerify.h"

#include <type_traits>

namespace KVNAPI {
namespace {

constexpr char ZTOKEN_FORMAT[] = "Compressed Brindsel Token Format (HUB->applications)";
constexpr char TOKEN_FORMAT[] = "Brindsel Token Format (HUB->applications)";
constexpr char VERBOSE_FORMAT[] = "Verbose output from detoker2";

template<class Verify>
std::unique_ptr<Framer> newFrameHelper(int maxBufferSize) {
    return std::make_unique<FrameHelper<Verify>>(maxBufferSize);
}

void enterFramers(_factory& list) {
    using Names = NameFactory<framerFactory_t>;
    list.append(Names::untyped(&newFrameHelper<NLVerify>), "newline",
                "new line separated (useful for vkvn messages)");
    list.append(Names::untyped(&newFrameHelper<KVNVerify>), "kvn", TOKEN_FORMAT);
}

void enterParsers(_factory& list) {
    using Names = NameFactory<parserFactory_t>;
    list.append(Names::untyped(&newKVNparser), "kvn", TOKEN_FORMAT);
    list.append(Names::untyped(&newVKVNparser), "vkvn", VERBOSE_FORMAT);
    list.append(Names::untyped(&newZKVNparser), "zkvn", ZTOKEN_FORMAT);
}

void enterEncoders(_factory& list) {
    using Names = NameFactory<encoderFactory_t>;
    list.append(Names::untyped(&newKVNencoder), "kvn", TOKEN_FORMAT);
    list.append(Names::untyped(&newVKVNencoder), "vkvn", VERBOSE_FORMAT);
}

static_assert(std::is_trivially_destructible_v<NameFactory<framerFactory_t>>);

} // namespace

constinit NameFactory<framerFactory_t> FramerList{&enterFramers};
constinit NameFactory<parserFactory_t> ParserList{&enterParsers};
constinit NameFactory<encoderFactory_t> EncoderList{&enterEncoders};

void registerFramer(framerFactory_t factory, const char* name, const char* desc) {
    FramerList.registerName(factory, name, desc);
}

void registerParser(parserFactory_t factory, const char* name, const char* desc) {
    ParserList.registerName(factory, name, desc);
}

void registerEncoder(encoderFactory_t factory, const char* name, const char* desc) {
    EncoderList.registerName(factory, name, desc);
}

} // namespace KVNAPI
