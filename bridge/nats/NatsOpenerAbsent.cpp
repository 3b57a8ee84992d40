#include "bus/BusError.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener natsOpener(const tivra::BusOptions&) {
    throw BusError("this build of tivra was made without libnats, so that it knows no nats:// and tls://; "
                   "install libnats-dev and build it again");
}

} // namespace tivra_bus
