#include "kafka/KafkaSource.h"
#include "reader/SourceOpener.h"

namespace tivra_bus {

SourceOpener kafkaOpener(const tivra::BusOptions& options) {
    KafkaAddress address;
    address.servers = kafkaServersOf(options.url);
    address.name = options.name;
    if (!options.credentialsFile.empty())
        address.properties = readKafkaProperties(options.credentialsFile);
    address.caFile = options.caFile;
    address.certificateFile = options.certificateFile;
    address.keyFile = options.keyFile;
    address.patience = options.answerTimeout;
    (void)securityOf(address);
    return [address] { return std::make_unique<KafkaSource>(address); };
}

} // namespace tivra_bus
