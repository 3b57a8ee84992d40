#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tivra_tools {

/// An option as manual pages and completions speak of it.
struct OptionWords {
    std::vector<std::string> names; ///< "-H", "--host", the short ones first
    std::string help;
    std::string group;
    bool takesValue = false;
    std::vector<std::string> choices; ///< the words that its value may be, if these are few
    bool takesFile = false;
    bool takesField = false; ///< its value is the name of a field
};

/// The options of a program or a command that --help shows, in their order; a command's own --help goes
/// without saying.
[[nodiscard]] std::vector<OptionWords> optionsOf(const CLI::App& app);
/// Its commands, without their aliases.
[[nodiscard]] std::vector<const CLI::App*> commandsOf(const CLI::App& app);
/// "a b c".
[[nodiscard]] std::string wordList(const std::vector<std::string>& words);

} // namespace tivra_tools
