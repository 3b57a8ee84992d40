#pragma once

#include <string>

namespace tivra_internal {

/// How a host's connections are encrypted, as it is configured.
struct TlsSettings {
    bool isOn = false;
    bool isRequired = false;       ///< no plain connection is made
    std::string caFile{};          ///< PEM; empty for the system's store
    std::string crlFile{};         ///< PEM; empty for no revocation lists
    std::string serverName{};      ///< that the certificate has to be for; empty for the hub's address
    std::string pinnedKeys{};      ///< "sha256/" and the Base64 of a public key's hash, several after commas
    std::string certificateFile{}; ///< PEM, of the client, with its chain; empty for none
    std::string keyFile{};         ///< PEM; empty for the file of the certificate
    std::string minVersion{};      ///< "1.2" or "1.3"; empty for 1.2
};

} // namespace tivra_internal
