#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace tivra_tools {

/// Declares --host and --backup.
void declareHosts(CLI::App& app, const std::string& group, std::vector<std::string>& hosts,
                  std::vector<std::string>& backups);

/// Turns what they name into "IPv4 address:port". Throws UsageError for what is no host, and for one that is
/// its own backup.
void resolveHosts(std::vector<std::string>& hosts, std::vector<std::string>& backups);

/// Declares --read-timeout, in seconds.
void declareReadTimeout(CLI::App& app, const std::string& group, std::optional<long>& seconds);

/// Declares --log-file.
void declareLogFile(CLI::App& app, const std::string& group, std::string& logFile);

} // namespace tivra_tools
