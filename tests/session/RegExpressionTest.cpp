#include "session/RegExpression.h"

#include <string>

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

struct Refusal {
    const char* what;
    std::string pattern;
    bool usable;
};

class HostilePattern : public testing::TestWithParam<Refusal> {};

TEST_P(HostilePattern, IsRefusedWhenItCouldBlowUp) {
    RegExpression pattern;
    pattern.set(GetParam().pattern.c_str());
    EXPECT_EQ(pattern.isSet(), GetParam().usable);
    EXPECT_EQ(pattern.match("A"), GetParam().usable);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostilePattern,
    testing::Values(Refusal{"Unbalanced", "(A", false}, Refusal{"LongestAllowed", repeated("A*", 2048), true},
                    Refusal{"TooLong", repeated("A*", 2049), false},
                    Refusal{"DeepestAllowed", repeated("(", 32) + "A" + repeated(")", 32), true},
                    Refusal{"TooDeep", repeated("(", 33) + "A" + repeated(")", 33), false},
                    Refusal{"HighestBound", "A{1,255}", true}, Refusal{"BoundTooHigh", "A{256}", false},
                    Refusal{"BoundWithinBoundedGroup", "(A{1,200}){1,200}", false},
                    Refusal{"BoundWithinNestedBoundedGroup", "((A{1,200})){1,200}", false},
                    Refusal{"BoundsSideBySide", "(A){1,200}B{0,200}", true},
                    Refusal{"BracesInABracketAreNoBound", "A|[{]999999[}]", true}),
    [](const auto& row) { return row.param.what; });

} // namespace
