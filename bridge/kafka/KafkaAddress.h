#pragma once

#include "bus/EngineOptions.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace tivra_bus {

/// How the engine is reached. Secrets are in files alone.
struct KafkaAddress {
    std::vector<std::string> servers; ///< "host:port", of which one that answers is enough
    std::string name;                 ///< under which the engine's logs and groups list the connection
    /// Of the client library, by name: what readKafkaProperties() gives.
    std::map<std::string, std::string> properties;
    std::string caFile;          ///< certificates that servers are checked with; turns TLS on
    std::string certificateFile; ///< of this client, with keyFile; turns TLS on
    std::string keyFile;
    std::chrono::milliseconds patience{5000}; ///< that an answer of the engine may take
};

/// The servers of "kafka://a,b:9093,c"; the port is 9092 where none is named.
/// @throws BusError for another form, and for a password in it
[[nodiscard]] std::vector<std::string> kafkaServersOf(const std::string& url);

/// Reads properties of the client library, "sasl.username=feed" in each line, "#" begins a comment.
/// @throws BusError for a file that others can read, for a line of another form and for a property that a
///         bridge sets itself
[[nodiscard]] std::map<std::string, std::string> readKafkaProperties(const std::string& path);

/// What decides whether connections are encrypted and who logs on.
/// @throws BusError where a password would go over the wire in plain text without being asked to
[[nodiscard]] std::map<std::string, std::string> securityOf(const KafkaAddress& address);

/// The address that the options mean, with what the credentials file says.
/// @throws BusError as the functions above do
[[nodiscard]] KafkaAddress kafkaAddressOf(const EngineOptions& options);

} // namespace tivra_bus
