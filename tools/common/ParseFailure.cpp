#include "common/ParseFailure.h"

#include <tp/NearestName.h>

#include <algorithm>

namespace tivra_tools {

namespace {

bool isOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

std::vector<std::string> commandWords(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(command->get_name());
    return names;
}

void addOptions(const CLI::App& app, std::vector<std::string>& names) {
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
}

/// All long options, of commands too: which of them was meant may be what is wrong.
std::vector<std::string> optionWords(const CLI::App& app) {
    std::vector<std::string> names;
    addOptions(app, names);
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        addOptions(*command, names);
    return names;
}

std::string unknownOption(const CLI::App& app, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    return "there is no option " + name + suggestion(name, optionWords(app));
}

} // namespace

std::string suggestion(const std::string& wanted, const std::vector<std::string>& names) {
    tp::NearestName nearest(wanted);
    for (const std::string& name : names)
        nearest.offer(name);
    const std::size_t most = std::max<std::size_t>(2, wanted.size() / 3);
    return nearest.best().empty() || nearest.distance() > most ? std::string()
                                                               : "; did you mean " + nearest.best() + "?";
}

std::string parseFailureText(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    // An option that isn't known leaves its value too, so it counts before what may be that.
    const auto option = std::find_if(unknown.begin(), unknown.end(), isOption);
    if (option != unknown.end())
        return unknownOption(app, *option);
    const std::vector<std::string> commands = commandWords(app);
    if (!unknown.empty() && !commands.empty() && app.get_subcommands().empty())
        return "there is no command " + unknown.front() + suggestion(unknown.front(), commands);
    return error.what();
}

} // namespace tivra_tools
