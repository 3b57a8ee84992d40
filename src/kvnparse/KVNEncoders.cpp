#include "kvnparse/KVNEncoders.h"

#include "kvnparse/buildkvn.h"
#include "kvnparse/buildvkvn.h"

namespace KVNAPI {

std::unique_ptr<Encoder> newKVNencoder() {
    return std::make_unique<buildkvn>();
}

std::unique_ptr<Encoder> newVKVNencoder() {
    return std::make_unique<buildvkvn>();
}

} // namespace KVNAPI
