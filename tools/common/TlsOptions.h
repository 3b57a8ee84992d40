#pragma once

#include <CLI/CLI.hpp>
#include <feed/FeedOptions.h>
#include <tivra.h>

#include <string>

namespace tivra_tools {

/// How a program's connections are encrypted; what is empty leaves the library's default in force.
struct TlsOptions {
    bool isOn = false;
    std::string caFile;
    std::string serverName;
    std::string pin;
    std::string certificate;
    std::string key;
};

/// Declares --tls and what belongs to it, each of which says --tls too.
/// @param name  in its place, for a program that has a --tls of another kind
void declareTls(CLI::App& app, const std::string& group, TlsOptions& options,
                const std::string& name = "--tls");

/// Before the session starts. Hubs that the named ones name get the same, and none is dialled without TLS.
void applyTls(const TlsOptions& options, tivra::ConnectionConfig& connections);
/// The same for a feed.
void applyTls(const TlsOptions& options, tivra::FeedOptions& feed);

} // namespace tivra_tools
