#include "bus/BusError.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener kafkaOpener(const tivra::BusOptions&) {
    throw BusError("this build of tivra was made without librdkafka, so that it knows no kafka://; install "
                   "librdkafka-dev and build it again");
}

} // namespace tivra_bus
