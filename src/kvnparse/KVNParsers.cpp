#include "kvnparse/KVNParsers.h"

#include "kvnparse/FrameWrap.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/KVNVerify.h"
#include "kvnparse/NLVerify.h"

namespace KVNAPI {

std::unique_ptr<Parser> newKVNparser(int maxBufferSize) {
    return std::make_unique<FrameWrap<KVNParse, KVNVerify>>("kvn", maxBufferSize);
}

std::unique_ptr<Parser> newVKVNparser(int maxBufferSize) {
    auto parser = std::make_unique<FrameWrap<KVNParse, NLVerify>>("newline", maxBufferSize);
    if (parser->optionParser("SetEOL=10,AllowVerboseToken=1,HasKVNHeader=0") != 0)
        return nullptr;
    return parser;
}

} // namespace KVNAPI
