#include "CatFixture.h"

#include <regex>
#include <set>

namespace {

class Document : public CatFixture {};

std::set<std::string> longOptions(const std::string& text) {
    const std::regex option("--[a-z][a-z-]+");
    std::set<std::string> options;
    for (std::sregex_iterator at(text.begin(), text.end(), option), end; at != end; ++at)
        options.insert(at->str());
    return options;
}

} // namespace

TEST_F(Document, NamesEveryOptionOfBothPrograms) {
    std::ifstream file(TIVRA_TOOLS_DOCUMENT);
    const std::string document((std::istreambuf_iterator<char>(file)), {});
    const std::set<std::string> documented = longOptions(document);
    std::set<std::string> known;
    for (const Arguments& arguments : {Arguments{"--help"},
                                       {"subscribe", "--help"},
                                       {"depth", "--help"},
                                       {"wildcard", "--help"},
                                       {"list", "--help"}}) {
        startBare(arguments);
        ASSERT_EQ(cat->waitForEnd(), 0);
        known.merge(longOptions(cat->output()));
    }
    setup.program = TIVRA_HUB_PROGRAM;
    startBare({"--help"});
    ASSERT_EQ(cat->waitForEnd(), 0);
    known.merge(longOptions(cat->output()));
    for (const std::string& option : known)
        EXPECT_EQ(documented.count(option), 1U) << option << " is not in docs/tools.md";
    for (const std::string& option : documented)
        EXPECT_EQ(known.count(option), 1U) << option << " is in docs/tools.md but no program has it";
}
