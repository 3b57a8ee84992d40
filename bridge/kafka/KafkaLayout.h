#pragma once

#include "bus/BusPublisher.h"
#include "kafka/KafkaClient.h"
#include "kafka/KafkaReader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tivra_bus {

/// What BusPublisher::prepare promises.
/// @return the largest message that the topic of batches takes
std::size_t prepareKafka(const KafkaClient& client, const BusLayout& layout);

/// The dictionary in its topic, as it is there.
struct KafkaDictionary {
    std::string text;
    std::uint64_t revision = 0; ///< the offset after its last message; 0 for none
};

/// @throws BusError
[[nodiscard]] KafkaDictionary readKafkaDictionary(KafkaReader& reader);

} // namespace tivra_bus
