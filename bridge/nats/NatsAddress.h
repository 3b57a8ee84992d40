#pragma once

#include "bus/EngineOptions.h"

#include <string>
#include <vector>

namespace tivra_bus {

/// How the engine is reached. Secrets are in files alone.
struct NatsAddress {
    std::vector<std::string> servers; ///< "nats://host:port"
    bool isSecure = false;            ///< by TLS, or not at all
    std::string name;                 ///< under which the servers list the connection
    std::string credentialsFile;      ///< of a user, with its key; empty for none
    std::string caFile;               ///< certificates that servers are checked with; turns TLS on
    std::string certificateFile;      ///< of this client, with keyFile
    std::string keyFile;
    int answerMilliseconds = 2000; ///< that an answer of the engine may take
};

/// The address that the options mean: "nats://a,b:4222,c", or "tls://..." for connections by TLS alone.
/// @throws BusError for a URL of another form, and for a password in it
[[nodiscard]] NatsAddress natsAddressOf(const EngineOptions& options);

} // namespace tivra_bus
