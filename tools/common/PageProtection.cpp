#include "common/PageProtection.h"

namespace tivra_tools {

void declarePageProtection(CLI::App& app, const std::string& group, PageProtection& protection) {
    CLI::Option* const certificate =
        app.add_option(
               "--stats-cert", protection.certificateFile,
               "file (PEM) of the certificate with which --stats-listen serves HTTPS in place of HTTP")
            ->check(CLI::ExistingFile)
            ->needs("--stats-listen")
            ->group(group);
    app.add_option("--stats-key", protection.keyFile,
                   "file (PEM) of its key; that of the certificate unless given")
        ->check(CLI::ExistingFile)
        ->needs(certificate)
        ->group(group);
    app.add_option(
           "--stats-token-file", protection.tokenFile,
           "file with a token in its first line, without which --stats-listen answers nobody; it has to "
           "come as \"Authorization: Bearer TOKEN\", and nobody else may be able to read the file")
        ->check(CLI::ExistingFile)
        ->needs("--stats-listen")
        ->group(group);
}

} // namespace tivra_tools
