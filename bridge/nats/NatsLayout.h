#pragma once

#include "bus/BusPublisher.h"
#include "nats/NatsConnection.h"

#include <cstdint>
#include <string>

namespace tivra_bus {

/// What BusPublisher::prepare promises.
void prepareNats(const NatsConnection& connection, const BusLayout& layout);
/// What BusPublisher::storeDictionary promises.
[[nodiscard]] std::uint64_t storeNatsDictionary(const NatsConnection& connection, const std::string& text);

} // namespace tivra_bus
