#pragma once

#include "common/AddressOptions.h"
#include "common/TlsOptions.h"

#include <feed/Instrument.h>

#include <optional>
#include <string>
#include <vector>

namespace tivra_top {

/// What the command line asks for, checked.
struct Options {
    std::vector<std::string> hosts;
    std::vector<std::string> backups;
    std::string user;
    std::string passwordFile;
    tivra_tools::TlsOptions tls;
    tivra_tools::AddressOptions addresses;
    std::string endpoint;          ///< URL of an application's statistics in place of hosts, empty for none
    std::string endpointCa;        ///< file of the certificates that may vouch for it; empty for the system's
    std::string endpointTokenFile; ///< of the token that it wants; empty for none
    std::vector<tivra::Instrument> symbols;
    std::vector<tivra::Instrument> patterns;
    std::vector<std::string> fields;
    double timeoutSeconds = 30.0;
    std::optional<long> readTimeout; ///< seconds
    bool hasCompression = true;
    std::string logFile;
    bool isDebug = false;
    bool isOnce = false;
    bool hasColor = true;
    std::string serve; ///< "address:port", empty for none
};

/// Nothing when all is done, for --help.
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

} // namespace tivra_top
