#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tivra_tools {

/// Declares --user and --password-file.
void declareUser(CLI::App& app, const std::string& group, std::string& user, std::string& passwordFile);

/// Throws UsageError for a name that no login can carry.
void checkUser(const std::string& user);

/// A password in an argument can be read by every user of the machine, so it is not even parsed: throws
/// UsageError when there is one.
void refusePasswordArgument(int argc, char** argv);

} // namespace tivra_tools
