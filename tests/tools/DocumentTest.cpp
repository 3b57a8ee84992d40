#include "CatFixture.h"

#include <algorithm>
#include <set>

namespace {

using Words = std::set<std::string>;

struct Program {
    const char* name;
    const char* path;
    std::vector<const char*> commands; ///< with options of their own
};

void PrintTo(const Program& parameter, std::ostream* out) {
    *out << parameter.name;
}

const Program PROGRAMS[] = {
    {"tivra-cat", TIVRA_CAT_PROGRAM, {"snapshot", "subscribe", "depth", "wildcard", "list"}},
    {"tivra-hub", TIVRA_HUB_PROGRAM, {}},
    {"tivra-wire", TIVRA_WIRE_PROGRAM, {"dump", "convert", "map"}},
};

class Document : public CatFixture, public testing::WithParamInterface<Program> {
protected:
    std::string helpOf(const Program& program, const Arguments& arguments) {
        setup.program = program.path;
        Arguments all = arguments;
        all.emplace_back("--help");
        EXPECT_EQ(startBare(all).waitForEnd(), 0);
        return cat->output();
    }

    std::vector<std::string> helpsOf(const Program& program) {
        std::vector<std::string> texts{helpOf(program, {})};
        for (const char* command : program.commands)
            texts.push_back(helpOf(program, {command}));
        return texts;
    }
};

/// Every "--word" of a text.
Words longOptions(const std::string& text) {
    const char* const letters = "abcdefghijklmnopqrstuvwxyz-";
    Words options;
    for (std::size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at)) {
        const std::size_t end = std::min(text.find_first_not_of(letters, at), text.size());
        if (end > at + 3 && text[at + 2] != '-')
            options.insert(text.substr(at, end - at));
        at = end;
    }
    return options;
}

/// The numbers that stand between `before` and `behind`.
Words numbersBetween(const std::string& text, const std::string& before, const std::string& behind) {
    Words numbers;
    for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
        const std::size_t from = at + before.size();
        const std::size_t end = std::min(text.find_first_not_of("0123456789", from), text.size());
        if (end > from && text.compare(end, behind.size(), behind) == 0)
            numbers.insert(text.substr(from, end - from));
    }
    return numbers;
}

} // namespace

TEST_P(Document, NamesWhatHelpDoesAndNothingElse) {
    std::ifstream file(TIVRA_TOOLS_DOCUMENT);
    const std::string document((std::istreambuf_iterator<char>(file)), {});
    const std::size_t begin = document.find("\n## " + std::string(GetParam().name) + "\n");
    ASSERT_NE(begin, std::string::npos);
    const std::string section = document.substr(begin, document.find("\n## ", begin + 1) - begin);
    const Words documented = longOptions(section);

    const std::vector<std::string> helps = helpsOf(GetParam());
    Words known;
    for (const std::string& help : helps) {
        known.merge(longOptions(help));
        for (std::size_t at = help.find("\n  -"); at != std::string::npos; at = help.find("\n  -", at + 1)) {
            const std::string both =
                help.substr(at + 3, 2) + "`, `" + help.substr(at + 6, help.find(' ', at + 6) - at - 6);
            if (help[at + 5] == ',' && both != "-h`, `--help") {
                EXPECT_NE(section.find("`" + both), std::string::npos) << both;
            }
        }
    }
    for (const std::string& option : known)
        EXPECT_EQ(documented.count(option), 1U) << option << " is not told";
    for (const Program& other : PROGRAMS) // a section may tell what goes with other programs
        for (const std::string& help : helpsOf(other))
            known.merge(longOptions(help));
    for (const std::string& option : documented)
        EXPECT_EQ(known.count(option), 1U) << option << " is told, but no program has it";

    std::string codes = helps[0].substr(helps[0].find("Exit codes:"));
    std::replace(codes.begin(), codes.end(), '\n', ' ');
    const std::size_t table = std::min(section.find("Exit code |"), section.find("| Code |"));
    ASSERT_NE(table, std::string::npos);
    Words told = numbersBetween(codes, ", ", " ");
    told.merge(numbersBetween(codes, ": ", " "));
    EXPECT_EQ(numbersBetween(section.substr(table), "\n| ", " |"), told);
}

INSTANTIATE_TEST_SUITE_P(Programs, Document, testing::ValuesIn(PROGRAMS),
                         [](const auto& instance) { return std::string(instance.param.name).substr(6); });
