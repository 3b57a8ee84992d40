// Manual pages and completions, which are made of the options.
#include "ToolFixture.h"

#include <regex>
#include <set>

using testing::HasSubstr;

namespace {

class ToolText : public ToolFixture, public testing::WithParamInterface<const char*> {
protected:
    std::string outputOf(const std::string& line) {
        EXPECT_EQ(run(line), 0) << line << ": " << tool->error();
        return tool->output();
    }

    /// The long options in a help text.
    static std::set<std::string> optionsIn(const std::string& help) {
        std::set<std::string> names;
        const std::regex option("--[a-z][a-z-]+(?=[ ,\n{])");
        // In the lines that begin with an option, up to its description.
        const std::regex line("(^|\n) +((-[A-Za-z],)?--[^\n]*)");
        for (std::sregex_iterator at(help.begin(), help.end(), line), end; at != end; ++at) {
            const std::string text = at->str(2).substr(0, at->str(2).find("  ")) + " ";
            for (std::sregex_iterator name(text.begin(), text.end(), option); name != end; ++name)
                names.insert(name->str());
        }
        return names;
    }

    /// The commands that a help text lists, without what stands beside them.
    static std::vector<std::string> commandsIn(const std::string& help) {
        std::vector<std::string> names;
        std::istringstream lines(help.substr(std::min(help.size(), help.find("\nSubcommands:\n"))));
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("  ", 0) == 0 && line[2] >= 'a' && line[2] <= 'z')
                names.push_back(line.substr(2, line.find_first_of(" ,", 2) - 2));
        return names;
    }
};

TEST_P(ToolText, NamesEachOptionAndCommandOfTheHelp) {
    const std::string program = GetParam();
    const std::string help = outputOf(program + " --help");
    std::set<std::string> options = optionsIn(help);
    EXPECT_GE(options.size(), 10U);
    const std::vector<std::string> commands = commandsIn(help);
    for (const std::string& command : commands)
        options.merge(optionsIn(outputOf(program + " " + command + " --help")));
    const std::string man = outputOf(program + " --generate man");
    const std::string bash = outputOf(program + " --generate bash");
    const std::string zsh = outputOf(program + " --generate zsh");
    const std::string fish = outputOf(program + " --generate fish");
    for (const std::string& option : options) {
        EXPECT_THAT(man, HasSubstr("\\fB" + std::regex_replace(option, std::regex("-"), "\\-") + "\\fR"));
        EXPECT_THAT(bash, HasSubstr(option));
        EXPECT_THAT(zsh, HasSubstr("'*" + option + "["));
        EXPECT_THAT(fish, HasSubstr(" -l " + option.substr(2) + " "));
    }
    for (const std::string& command : commands) {
        EXPECT_THAT(man, HasSubstr(".SS " + command));
        for (const std::string& text : {bash, zsh, fish})
            EXPECT_THAT(text, HasSubstr(command));
    }
}

INSTANTIATE_TEST_SUITE_P(Programs, ToolText,
                         testing::Values("tivra-cat", "tivra-hub", "tivra-top", "tivra-wire"));

struct Typed {
    const char* words;    ///< the last is what is completed
    const char* expected; ///< words of the reply
};

class BashCompletion : public ToolFixture, public testing::WithParamInterface<Typed> {};

TEST_P(BashCompletion, OffersWhatMayStandThere) {
    writeFile("map", "cmd=AddToken|name=BID|token=101|storage=double\n"
                     "cmd=AddToken|name=BID.SIZE|token=102|storage=int\n");
    writeFile("try", "cd " + directory + "\nread -r first rest <<< '" + GetParam().words +
                         "'\neval \"$($first --generate bash)\"\nCOMP_WORDS=(" + GetParam().words +
                         ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\nexport TIVRA_MAP=map\n" +
                         "_${first//-/_}\necho \" ${COMPREPLY[*]} \"\n");
    ASSERT_EQ(run("bash try"), 0) << tool->error();
    EXPECT_EQ(tool->error(), "");
    EXPECT_THAT(tool->output(), HasSubstr(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BashCompletion,
    testing::Values(Typed{"tivra-cat --ho", " --host --hold-reads "}, Typed{"tivra-cat snap", " snapshot "},
                    Typed{"tivra-cat -o j", " json "}, Typed{"tivra-cat --fields BID.", " BID.SIZE "},
                    Typed{"tivra-cat subscribe --snap", " --snapshot "},
                    Typed{"tivra-wire merge --begi", " --begin "}, Typed{"tivra-wire -m ma", " map "},
                    Typed{"tivra-wire convert --to c", " capture csv "},
                    Typed{"tivra-hub --topology r", "  "},
                    Typed{"tivra-hub --topology s", " single-instance "}));

} // namespace
