#include "nats/NatsSource.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener natsOpener(const tivra::BusOptions& options) {
    NatsAddress address;
    setNatsServers(address, options.url);
    address.name = options.name;
    address.credentialsFile = options.credentialsFile;
    address.caFile = options.caFile;
    address.certificateFile = options.certificateFile;
    address.keyFile = options.keyFile;
    address.answerMilliseconds = static_cast<int>(options.answerTimeout.count());
    return [address] { return std::make_unique<NatsSource>(address); };
}

} // namespace tivra_bus
