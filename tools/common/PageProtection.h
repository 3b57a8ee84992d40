#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tivra_tools {

/// How a server of pages is protected against those who may not see them, or may only listen on the way.
struct PageProtection {
    std::string certificateFile; ///< PEM, with the chain above it; empty for HTTP in clear
    std::string keyFile;         ///< PEM; empty for the file of the certificate
    std::string tokenFile;       ///< of the bearer token that each request has to have; empty for none

    /// Of the server's URLs.
    [[nodiscard]] const char* scheme() const { return certificateFile.empty() ? "http" : "https"; }
};

/// Declares --stats-cert, --stats-key and --stats-token-file.
void declarePageProtection(CLI::App& app, const std::string& group, PageProtection& protection);

} // namespace tivra_tools
