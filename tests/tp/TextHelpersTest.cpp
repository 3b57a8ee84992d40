#include <tp/Thread.h>
#include <tp/strtrim.h>
#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Strtrim, BothEndsAndNothingElse) {
    const struct {
        const char* before;
        const char* after;
    } cases[] = {{"", ""},           {" \t\r\n\v\f ", ""}, {"a", "a"},
                 {"  a b\n", "a b"}, {"\n=MSFT", "=MSFT"}, {"\xa0x\xff ", "\xa0x\xff"}};
    for (const auto& c : cases) {
        std::string text = c.before;
        EXPECT_EQ(tp::strtrim(text.data()), text.data());
        EXPECT_STREQ(text.c_str(), c.after);
    }
}

TEST(TeError, EachThreadKeepsItsOwnText) {
    tp::te_error("mine %d", 1);
    tp::Thread("other", [] {
        EXPECT_STREQ(tp::te_geterror(), "");
        tp::te_error("theirs");
    }).join();
    EXPECT_STREQ(tp::te_geterror(), "mine 1");
}

TEST(TeError, LongTextsAreCutAndOwnTextMayBeAnArgument) {
    const std::string longText(10000, 'x');
    tp::te_error("%s", longText.c_str());
    EXPECT_EQ(std::string(tp::te_geterror()), std::string(4095, 'x'));
    tp::te_error_safe("wrapped: %s", tp::te_geterror());
    EXPECT_EQ(std::string(tp::te_geterror()), "wrapped: " + std::string(4095 - 9, 'x'));
}

} // namespace
