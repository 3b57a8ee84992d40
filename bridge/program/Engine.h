#pragma once

#include "bus/BusPublisher.h"
#include "share/PartitionShare.h"

#include <memory>
#include <string>

namespace tivra_bus {

/// How an engine is reached, as the command line says. Secrets are in files alone.
struct EngineOptions {
    std::string url;             ///< "nats://a,b", "tls://a" or "kafka://a,b"
    std::string name;            ///< under which the engine lists this program
    std::string credentialsFile; ///< of a user of the engine; empty for none
    std::string caFile;          ///< certificates that servers are checked with
    std::string certificateFile; ///< of this program, with keyFile
    std::string keyFile;
};

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
