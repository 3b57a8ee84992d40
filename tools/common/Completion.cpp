#include "common/OptionWords.h"
#include "common/ToolText.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_tools {

namespace {

/// Names of fields come from the map file of -m, else from that of TIVRA_MAP.
constexpr const char* kFieldNames = R"(_tivra_fields() {
    local map="${TIVRA_MAP:-}" i
    for ((i = 1; i < ${#COMP_WORDS[@]} - 1; i++)); do
        case "${COMP_WORDS[i]}" in -m | --map) map="${COMP_WORDS[i + 1]}" ;; esac
    done
    [ -r "$map" ] && sed -n 's/^cmd=AddToken|name=\([^|]*\)|.*/\1/p' "$map"
}
)";

std::string joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

std::vector<std::string> namesOf(const std::vector<OptionWords>& options) {
    std::vector<std::string> names;
    for (const OptionWords& option : options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : commandsOf(app)) {
        names.push_back(command->get_name());
        const std::vector<std::string>& aliases = command->get_aliases();
        names.insert(names.end(), aliases.begin(), aliases.end());
    }
    return names;
}

/// All options, those of the commands behind those of the program.
std::vector<OptionWords> allOptions(const CLI::App& app) {
    std::vector<OptionWords> all = optionsOf(app);
    for (const CLI::App* command : commandsOf(app)) {
        for (OptionWords& option : optionsOf(*command))
            all.push_back(std::move(option));
    }
    return all;
}

/// As the name of a shell's function.
std::string functionName(const CLI::App& app) {
    std::string name = "_" + app.get_name();
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

/// What comes behind an option that takes a value, as the branches of a case.
std::string bashValues(const CLI::App& app) {
    std::string text;
    for (const OptionWords& option : allOptions(app)) {
        if (!option.takesValue)
            continue;
        std::string reply = "COMPREPLY=()";
        if (!option.choices.empty())
            reply = "COMPREPLY=($(compgen -W \"" + wordList(option.choices) + "\" -- \"$cur\"))";
        else if (option.takesFile)
            reply = "COMPREPLY=($(compgen -f -- \"$cur\"))";
        else if (option.takesField)
            reply = "COMPREPLY=($(compgen -W \"$(_tivra_fields)\" -- \"$cur\"))";
        text +=
            "    " + joined(option.names, " | ") + ")\n        " + reply + "\n        return\n        ;;\n";
    }
    return text;
}

std::string bashCompletion(const CLI::App& app) {
    const std::vector<std::string> commands = commandNames(app);
    std::string text =
        "# bash completion of " + app.get_name() + ", made from its options\n" + kFieldNames +
        functionName(app) +
        "() {\n    local cur=\"${COMP_WORDS[COMP_CWORD]}\" prev=\"${COMP_WORDS[COMP_CWORD - 1]}\"\n"
        "    local commands=\"" +
        wordList(commands) + "\" options=\"" + wordList(namesOf(optionsOf(app))) +
        "\" command=\"\" word\n    case \"$prev\" in\n" + bashValues(app) +
        "    esac\n    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        case \" $commands \" in *\" $word \"*) command=\"$word\" && break ;; esac\n    done\n";
    text += "    case \"$command\" in\n";
    for (const CLI::App* command : commandsOf(app)) {
        std::vector<std::string> names = command->get_aliases();
        names.insert(names.begin(), command->get_name());
        text += "    " + joined(names, " | ") + ") options=\"$options " +
                wordList(namesOf(optionsOf(*command))) + "\" ;;\n";
    }
    text +=
        "    esac\n    if [[ $cur == -* ]]; then\n        COMPREPLY=($(compgen -W \"$options\" -- "
        "\"$cur\"))\n"
        "    elif [[ -z $command && -n $commands ]]; then\n"
        "        COMPREPLY=($(compgen -W \"$commands\" -- \"$cur\"))\n    fi\n}\ncomplete -o default -F " +
        functionName(app) + " " + app.get_name() + "\n";
    return text;
}

/// Text between single quotes, without what a description of zsh would take for its own.
std::string zshText(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\'')
            out += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\')
            out += std::string("\\") + c;
        else
            out += c;
    }
    return out;
}

std::string zshCompletion(const CLI::App& app) {
    std::string text = "#compdef " + app.get_name() + "\n# made from its options\n_arguments -S \\\n";
    for (const OptionWords& option : allOptions(app)) {
        const std::string value = !option.takesValue ? std::string()
                                  : option.choices.empty()
                                      ? std::string(":value:") + (option.takesFile ? "_files" : "")
                                      : ":value:(" + wordList(option.choices) + ")";
        for (const std::string& name : option.names)
            text += fmt::format("    '*{}[{}]{}' \\\n", name, zshText(option.help), value);
    }
    const std::vector<const CLI::App*> commands = commandsOf(app);
    if (commands.empty())
        return text + "    '*:file:_files'\n";
    text += "    '1:command:((";
    for (const CLI::App* command : commands)
        text += command->get_name() + "\\:\"" + zshText(command->get_description()) + "\" ";
    return text + "))' \\\n    '*:argument:_files'\n";
}

std::string fishText(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "'";
}

std::string fishOptions(const CLI::App& app, const std::string& start) {
    std::string text;
    for (const OptionWords& option : optionsOf(app)) {
        text += start;
        for (const std::string& name : option.names)
            text += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
        if (option.takesValue)
            text += option.takesFile ? " -r -F" : " -x";
        if (!option.choices.empty())
            text += " -a " + fishText(wordList(option.choices));
        text += " -d " + fishText(option.help) + "\n";
    }
    return text;
}

std::string fishCompletion(const CLI::App& app) {
    const std::string start = "complete -c " + app.get_name();
    std::string text =
        "# fish completion of " + app.get_name() + ", made from its options\n" + fishOptions(app, start);
    for (const CLI::App* command : commandsOf(app)) {
        std::vector<std::string> names = command->get_aliases();
        names.insert(names.begin(), command->get_name());
        text += start + " -n __fish_use_subcommand -a " + fishText(wordList(names)) + " -d " +
                fishText(command->get_description()) + "\n" +
                fishOptions(*command, start + " -n '__fish_seen_subcommand_from " + wordList(names) + "'");
    }
    return text;
}

} // namespace

std::string completionOf(const CLI::App& app, const std::string& shell) {
    if (shell == "bash")
        return bashCompletion(app);
    if (shell == "zsh")
        return zshCompletion(app);
    return shell == "fish" ? fishCompletion(app) : std::string();
}

} // namespace tivra_tools
