#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tivra_tools {

/// What a program's options say for others than its --help: its manual page and the completion of shells. All
/// comes from the options as they are declared.
///
/// For "PROGRAM --generate WHAT" it prints WHAT, which is man, bash, zsh or fish, to standard output. The
/// build asks for it; --help leaves it out.
/// @return whether that was asked for, and there is nothing else to do.
[[nodiscard]] bool writeToolText(const CLI::App& app, int argc, char** argv);

/// The manual page in troff's man macros.
[[nodiscard]] std::string manualPage(const CLI::App& app);

/// The completion of a shell: bash, zsh or fish; empty for another.
[[nodiscard]] std::string completionOf(const CLI::App& app, const std::string& shell);

} // namespace tivra_tools
