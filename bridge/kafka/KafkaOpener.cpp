#include "kafka/KafkaSource.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener kafkaOpener(const tivra::BusOptions& options) {
    KafkaAddress address = kafkaAddressOf(engineOptionsOf(options));
    address.patience = options.answerTimeout;
    return [address] { return std::make_unique<KafkaSource>(address); };
}

} // namespace tivra_bus
