#include "kvnparse/IsalInflater.h"

namespace KVNAPI {

std::unique_ptr<Inflater> makeInflater() {
    return std::make_unique<IsalInflater>();
}

} // namespace KVNAPI
