#pragma once

#include <string>

namespace tivra_bus {

/// How an engine is reached, as its user says it. Secrets are in files alone.
struct EngineOptions {
    std::string url;             ///< "nats://a,b", "tls://a" or "kafka://a,b"
    std::string name;            ///< under which the engine lists this program
    std::string credentialsFile; ///< of a user of the engine; empty for none
    std::string caFile;          ///< certificates that servers are checked with
    std::string certificateFile; ///< of this program, with keyFile
    std::string keyFile;
};

} // namespace tivra_bus
