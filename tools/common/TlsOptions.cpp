#include "common/TlsOptions.h"

namespace tivra_tools {

void declareTls(CLI::App& app, const std::string& group, TlsOptions& options) {
    app.add_flag("--tls", options.isOn, "encrypt all connections by TLS")->group(group);
    const auto add = [&](const char* name, std::string& value, const char* help) {
        return app.add_option(name, value, help)->group(group);
    };
    add("--tls-ca", options.caFile,
        "file (PEM) of the certificates that may vouch for the hub's; the system's unless given")
        ->check(CLI::ExistingFile);
    add("--tls-name", options.serverName,
        "name or address that the hub's certificate has to be for; the hub's address unless given");
    add("--tls-pin", options.pin, "the only key that the hub may have, sha256/ and Base64");
    add("--tls-cert", options.certificate, "file (PEM) of this client's certificate")
        ->check(CLI::ExistingFile);
    add("--tls-key", options.key, "file (PEM) of its key; that of the certificate unless given")
        ->check(CLI::ExistingFile);
}

void applyTls(const TlsOptions& options, tivra::ConnectionConfig& connections) {
    using tivra::HostConfig;
    const bool isNamed = !options.caFile.empty() || !options.serverName.empty() || !options.pin.empty() ||
                         !options.certificate.empty() || !options.key.empty();
    if (!options.isOn && !isNamed)
        return;
    connections.set(HostConfig::TLS_BOOL, true)
        .set(HostConfig::REQUIRE_TLS_BOOL, true)
        .setText(HostConfig::TLS_CA_FILE_STRING, options.caFile)
        .setText(HostConfig::TLS_SERVER_NAME_STRING, options.serverName)
        .setText(HostConfig::TLS_PINNED_KEY_STRING, options.pin)
        .setText(HostConfig::TLS_CERTIFICATE_FILE_STRING, options.certificate)
        .setText(HostConfig::TLS_KEY_FILE_STRING, options.key);
}

} // namespace tivra_tools
