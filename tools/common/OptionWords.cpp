#include "common/OptionWords.h"

#include <algorithm>
#include <set>

namespace tivra_tools {

namespace {

/// Options whose value is a file though no other word of theirs says so.
const std::set<std::string> kFiles{"--config",       "--map",           "--record", "--record-wire",
                                   "--playback",     "--replay",        "--group",  "--stats-file",
                                   "--symbols-file", "--password-file", "--output"};
const std::set<std::string> kFields{"--fields", "--token", "--sequence-field"};

bool isOneOf(const std::set<std::string>& set, const std::vector<std::string>& names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& name) { return set.count(name) > 0; });
}

/// The words of "{a,b}" or "a|b" in what CLI11 calls the type of a value.
std::vector<std::string> choicesIn(const std::string& type) {
    const std::size_t open = type.find('{');
    const std::string text =
        open != std::string::npos ? type.substr(open + 1, type.find('}', open) - open - 1) : type;
    if (open == std::string::npos && text.find('|') == std::string::npos)
        return {};
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (c == ',' || c == '|')
            words.emplace_back();
        else if (c == ':')
            words.back().clear(); // the name of the type stands before it
        else if (c != ' ')
            words.back() += c;
    }
    return words;
}

OptionWords wordsOf(const CLI::Option& option) {
    OptionWords words;
    for (const std::string& name : option.get_snames())
        words.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        words.names.push_back("--" + name);
    words.help = option.get_description();
    words.group = option.get_group();
    words.takesValue = option.get_expected_max() > 0;
    if (words.takesValue)
        words.choices = choicesIn(option.get_type_name());
    words.takesFile = words.takesValue && words.choices.empty() && isOneOf(kFiles, words.names);
    words.takesField = words.takesValue && isOneOf(kFields, words.names);
    return words;
}

} // namespace

std::vector<OptionWords> optionsOf(const CLI::App& app) {
    std::vector<OptionWords> all;
    for (const CLI::Option* option : app.get_options()) {
        const bool isHelpOfCommand = app.get_parent() != nullptr && option == app.get_help_ptr();
        if (option->nonpositional() && !option->get_group().empty() && !isHelpOfCommand)
            all.push_back(wordsOf(*option));
    }
    return all;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string wordList(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words)
        list += (list.empty() ? "" : " ") + word;
    return list;
}

} // namespace tivra_tools
