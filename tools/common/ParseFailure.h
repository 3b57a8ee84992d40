#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tivra_tools {

/// What is wrong with a command line that CLI11 refuses: an option or a command that doesn't exist with the
/// one that it was most likely meant for, else CLI11's own words.
[[nodiscard]] std::string parseFailureText(const CLI::App& app, const CLI::ParseError& error);

/// "; did you mean NAME?" for the nearest of the names, empty when none is near.
[[nodiscard]] std::string suggestion(const std::string& wanted, const std::vector<std::string>& names);

} // namespace tivra_tools
