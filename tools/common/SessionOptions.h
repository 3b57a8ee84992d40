#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace tivra_tools {

/// Declares --host and --backup.
void declareHosts(CLI::App& app, const std::string& group, std::vector<std::string>& hosts,
                  std::vector<std::string>& backups);

/// Throws UsageError for what is no host, for a name without an address, and for one that is its own backup.
/// The library takes the texts as they are: it dials all addresses of a name, for which a certificate has to
/// be.
void checkHosts(const std::vector<std::string>& hosts, const std::vector<std::string>& backups);

/// Declares --read-timeout, in seconds.
void declareReadTimeout(CLI::App& app, const std::string& group, std::optional<long>& seconds);

/// Declares --log-file.
void declareLogFile(CLI::App& app, const std::string& group, std::string& logFile);

} // namespace tivra_tools
