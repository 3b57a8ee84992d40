#pragma once

#include "bus/BusPublisher.h"
#include "bus/EngineOptions.h"
#include "share/PartitionShare.h"

#include <memory>
#include <string>

namespace tivra_bus {

/// An engine that a bridge writes to, and shares partitions with other bridges on.
class Engine {
public:
    virtual ~Engine() = default;
    [[nodiscard]] virtual BusPublisher& publisher() = 0;
    [[nodiscard]] virtual PartitionShare& share() = 0;
};

/// @throws BusError for an address or a file that is no use with it
void checkEngine(const EngineOptions& options);
/// @param name  of this bridge, which no other has
/// @throws BusError also when the engine can't be reached
[[nodiscard]] std::unique_ptr<Engine> openEngine(const EngineOptions& options, const std::string& name,
                                                 unsigned partitions);

} // namespace tivra_bus
