#include "CatFixture.h"

#include <algorithm>
#include <set>

namespace {

class Document : public CatFixture {};

/// Every "--word" of a text.
std::set<std::string> longOptions(const std::string& text) {
    const char* const letters = "abcdefghijklmnopqrstuvwxyz-";
    std::set<std::string> options;
    for (std::size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at)) {
        const std::size_t end = std::min(text.find_first_not_of(letters, at), text.size());
        if (end > at + 3 && text[at + 2] != '-')
            options.insert(text.substr(at, end - at));
        at = end;
    }
    return options;
}

} // namespace

TEST_F(Document, NamesEveryOptionOfAllPrograms) {
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
    setup.program = TIVRA_WIRE_PROGRAM;
    for (const Arguments& arguments : {Arguments{"--help"}, {"convert", "--help"}}) {
        startBare(arguments);
        ASSERT_EQ(cat->waitForEnd(), 0);
        known.merge(longOptions(cat->output()));
    }
    for (const std::string& option : known)
        EXPECT_EQ(documented.count(option), 1U) << option << " is not in docs/tools.md";
    for (const std::string& option : documented)
        EXPECT_EQ(known.count(option), 1U) << option << " is in docs/tools.md but no program has it";
}
