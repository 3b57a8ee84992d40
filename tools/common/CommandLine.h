#pragma once

#include <CLI/CLI.hpp>

namespace tivra_tools {

/// Parses the arguments of a program, or prints what they ask of it in place of its work: --help, --version
/// or
/// "--generate WHAT". Throws UsageError for what is wrong.
/// @return false when all is done.
[[nodiscard]] bool readCommandLine(CLI::App& app, int argc, char** argv);

} // namespace tivra_tools
