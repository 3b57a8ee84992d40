#include "program/KafkaEngine.h"

#include "bus/BusError.h"

namespace tivra_bus {

void checkKafka(const EngineOptions&) {
    throw BusError("this tivra-bridge was built without librdkafka, so that it knows no kafka://; install "
                   "librdkafka-dev and build it again");
}

std::unique_ptr<Engine> openKafka(const EngineOptions& options, const std::string&, unsigned) {
    checkKafka(options);
    return nullptr;
}

} // namespace tivra_bus
