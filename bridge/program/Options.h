#pragma once

#include "program/Engine.h"
#include "run/Bridge.h"

#include "common/AddressOptions.h"
#include "common/PageProtection.h"
#include "common/TlsOptions.h"

#include <optional>
#include <string>
#include <vector>

namespace tivra_bus {

/// What the command line says.
struct ProgramOptions {
    std::vector<std::string> hosts; ///< "address:port", resolved
    std::vector<std::string> backups;
    std::string user;
    std::string passwordFile;
    tivra_tools::TlsOptions hubTls;
    tivra_tools::AddressOptions addresses;
    std::string logFile;
    EngineOptions engine;
    BridgeOptions bridge;
    std::string statsListen; ///< "address:port", empty for none
    tivra_tools::PageProtection statsProtection;
};

/// Reads the command line and the files that it names. Throws UsageError or BusError for what is wrong.
/// @return nothing when there is nothing to do but end well (--help, --version)
[[nodiscard]] std::optional<ProgramOptions> readOptions(int argc, char** argv);

} // namespace tivra_bus
