#include "session/routing/RegExpression.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

using tivra_internal::RegExpression;

namespace {

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST(RegExpression, MatchesUnanchoredAndWithoutRegardToCase) {
    RegExpression pattern;
    EXPECT_FALSE(pattern.match("A"));
    pattern.set("^[A-C].*|x\\.y");
    ASSERT_TRUE(pattern.isSet());
    EXPECT_TRUE(pattern.match("ibm x.y"));
    EXPECT_TRUE(pattern.match("bac"));
    EXPECT_FALSE(pattern.match("ibm xzy"));
    RegExpression copy(pattern);
    pattern.clear();
    EXPECT_FALSE(pattern.match("bac"));
    EXPECT_TRUE(copy.match("bac")) << "a copy keeps the compiled pattern alive";
}

TEST(RegExpression, RefusesWhatCouldBlowUp) {
    const std::string usable[] = {std::string(4096, 'A'),
                                  repeated("A.*|", 1000) + "A",
                                  repeated("A*", 512),
                                  repeated("(", 32) + "A" + repeated(")", 32),
                                  "A{1,255}",
                                  "(A){1,200}B{0,200}",
                                  "A|[{]999999[}]",
                                  "[[:alpha:][]+",
                                  "A|[]+++++++++++++++++++++++++++++++++++]"};
    const std::string refused[] = {"(A",
                                   std::string(4097, 'A'),
                                   repeated("(", 33) + "A" + repeated(")", 33),
                                   "A{256}",
                                   "A{1,256}",
                                   "(A{1,200}){1,200}",
                                   "((A{1,200})){1,200}",
                                   "A{255}{255}{255}",      // a bound of a bound
                                   "A" + repeated("+", 40), // each doubles what stands before it
                                   repeated("(", 30) + "A" + repeated(")+", 30), // the same with groups
                                   "[[:alpha:][]A" + repeated("+", 40), // behind brackets that hold brackets
                                   "[[.].][]A" + repeated("+", 40),
                                   repeated("($|)+^(()^)", 40),
                                   "(^|$|A|^|$|A|^|$|^|$|^)*",   // anchors, one after the other
                                   repeated("(A*)*", 800),       // many ways through nothing
                                   "(A*)*(A*)*(A*)*\\1\\2\\3B"}; // what a group has matched, once more
    RegExpression pattern;
    for (const bool isUsable : {true, false}) {
        for (const std::string& text : isUsable ? std::vector(std::begin(usable), std::end(usable))
                                                : std::vector(std::begin(refused), std::end(refused))) {
            pattern.set(text.c_str());
            EXPECT_EQ(pattern.isSet(), isUsable) << text.substr(0, 60);
            EXPECT_EQ(pattern.match(std::string(4096, 'A').c_str()), isUsable) << text.substr(0, 60);
        }
    }
}

} // namespace
