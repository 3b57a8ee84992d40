#include "kvnparse/ZlibInflater.h"

namespace KVNAPI {

std::unique_ptr<Inflater> makeInflater() {
    return std::make_unique<ZlibInflater>();
}

} // namespace KVNAPI
