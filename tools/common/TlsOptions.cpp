#include "common/TlsOptions.h"

namespace tivra_tools {

namespace {

bool isWanted(const TlsOptions& options) {
    return options.isOn || !options.caFile.empty() || !options.serverName.empty() || !options.pin.empty() ||
           !options.certificate.empty() || !options.key.empty();
}

} // namespace

void declareTls(CLI::App& app, const std::string& group, TlsOptions& options, const std::string& name) {
    app.add_flag(name, options.isOn, "encrypt all connections to hubs by TLS")->group(group);
    const auto add = [&](const char* suffix, std::string& value, const char* help) {
        return app.add_option(name + suffix, value, help)->group(group);
    };
    add("-ca", options.caFile,
        "file (PEM) of the certificates that may vouch for the hub's; the system's unless given")
        ->check(CLI::ExistingFile);
    add("-name", options.serverName,
        "name or address that the hub's certificate has to be for; the hub's address unless given");
    add("-pin", options.pin, "the only key that the hub may have, sha256/ and Base64");
    add("-cert", options.certificate, "file (PEM) of this client's certificate")->check(CLI::ExistingFile);
    add("-key", options.key, "file (PEM) of its key; that of the certificate unless given")
        ->check(CLI::ExistingFile);
}

void applyTls(const TlsOptions& options, tivra::ConnectionConfig& connections) {
    using tivra::HostConfig;
    if (!isWanted(options))
        return;
    connections.set(HostConfig::TLS_BOOL, true)
        .set(HostConfig::REQUIRE_TLS_BOOL, true)
        .setText(HostConfig::TLS_CA_FILE_STRING, options.caFile)
        .setText(HostConfig::TLS_SERVER_NAME_STRING, options.serverName)
        .setText(HostConfig::TLS_PINNED_KEY_STRING, options.pin)
        .setText(HostConfig::TLS_CERTIFICATE_FILE_STRING, options.certificate)
        .setText(HostConfig::TLS_KEY_FILE_STRING, options.key);
}

void applyTls(const TlsOptions& options, tivra::FeedOptions& feed) {
    if (!isWanted(options))
        return;
    feed.set("tls", "true")
        .set("require_tls", "true")
        .set("tls_ca_file", options.caFile)
        .set("tls_server_name", options.serverName)
        .set("tls_pinned_key", options.pin)
        .set("tls_certificate_file", options.certificate)
        .set("tls_key_file", options.key);
}

} // namespace tivra_tools
