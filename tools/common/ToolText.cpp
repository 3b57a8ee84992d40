#include "common/ToolText.h"

#include "common/OptionWords.h"

#include <iostream>
#include <string_view>

namespace tivra_tools {

namespace {

/// Text as troff shows it: no request at the start of a line, and hyphens that can be copied.
std::string troff(std::string_view text) {
    std::string out;
    bool isStart = true;
    for (const char c : text) {
        if (isStart && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '-')
            out += "\\-";
        else if (c == '\\')
            out += "\\e";
        else
            out += c;
        isStart = c == '\n';
    }
    return out;
}

std::string upper(std::string text) {
    for (char& c : text)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return text;
}

std::string optionText(const OptionWords& option) {
    std::string names;
    for (const std::string& name : option.names)
        names += (names.empty() ? "" : ", ") + ("\\fB" + troff(name) + "\\fR");
    if (option.takesValue)
        names += " \\fI" + (option.choices.empty() ? "VALUE" : troff(wordList(option.choices))) + "\\fR";
    return ".TP\n" + names + "\n" + troff(option.help) + "\n";
}

/// The options of a program or a command by their groups, each group under a heading of its own.
std::string optionSections(const CLI::App& app) {
    std::string text;
    std::string group;
    for (const OptionWords& option : optionsOf(app)) {
        if (option.group != group)
            text += ".SS " + troff(option.group) + "\n";
        group = option.group;
        text += optionText(option);
    }
    return text;
}

std::string commandText(const CLI::App& command) {
    std::string names = command.get_name();
    for (const std::string& alias : command.get_aliases())
        names += ", " + alias;
    std::string text = ".SS " + troff(names) + "\n" + troff(command.get_description()) + "\n";
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional())
            text += ".TP\n\\fI" + troff(option->get_name(true)) + "\\fR\n" +
                    troff(option->get_description()) + "\n";
    }
    for (const OptionWords& option : optionsOf(command))
        text += optionText(option);
    return text;
}

/// Lines stay lines: they are lists of codes and forms.
std::string footerText(const CLI::App& app) {
    return ".SH NOTES\n.nf\n" + troff(app.get_footer()) + "\n.fi\n";
}

} // namespace

std::string manualPage(const CLI::App& app) {
    const std::string& name = app.get_name();
    const std::vector<const CLI::App*> commands = commandsOf(app);
    std::string text = ".TH " + upper(name) + " 1 \"\" \"tivra\" \"User Commands\"\n.SH NAME\n" +
                       troff(name) + " \\- " + troff(app.get_description()) + "\n.SH SYNOPSIS\n.B " +
                       troff(name) + "\n[\\fIOPTIONS\\fR]" +
                       (commands.empty() ? "" : " \\fICOMMAND\\fR [\\fIARGUMENT\\fR...]") + "\n";
    if (!commands.empty())
        text += ".SH COMMANDS\n";
    for (const CLI::App* command : commands)
        text += commandText(*command);
    text += ".SH OPTIONS\n" + optionSections(app) + footerText(app) +
            ".SH SEE ALSO\n.BR tivra (7),\n.BR tivra\\-cat (1),\n.BR tivra\\-hub (1),\n.BR tivra\\-top "
            "(1),\n.BR tivra\\-wire (1)\n";
    return text;
}

bool writeToolText(const CLI::App& app, int argc, char** argv) {
    if (argc != 3 || std::string_view(argv[1]) != "--generate")
        return false;
    const std::string what = argv[2];
    const std::string text = what == "man" ? manualPage(app) : completionOf(app, what);
    if (text.empty())
        return false;
    std::cout << text << std::flush;
    return true;
}

} // namespace tivra_tools
