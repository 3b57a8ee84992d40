#include "nats/NatsSource.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener natsOpener(const tivra::BusOptions& options) {
    NatsAddress address = natsAddressOf(engineOptionsOf(options));
    address.answerMilliseconds = static_cast<int>(options.answerTimeout.count());
    return [address] { return std::make_unique<NatsSource>(address); };
}

} // namespace tivra_bus
