#include "request/RequestImpl.h"

#include <functional>
#include <limits>
#include <string>

#include <gmock/gmock.h>

#include "request/TagSource.h"
#include "support/LogCapture.h"

using namespace tivra_internal;

namespace {

struct TextCase {
    const char* name;
    std::function<void(RequestImpl&)> build;
    std::string text;
    int32_t srcid;
    std::string symbol;
};

class RequestText : public testing::TestWithParam<TextCase> {};

class CountingTags : public TagSource {
public:
    int64_t getNextTag() override { return next++; }
    int64_t next = 18;
};

const std::string kLong(40, 'X');

} // namespace

TEST_P(RequestText, IsBuiltInCallOrder) {
    RequestImpl request;
    GetParam().build(request);
    EXPECT_EQ(request.getText(), GetParam().text);
    EXPECT_EQ(request.getSrcid(), GetParam().srcid);
    EXPECT_EQ(std::string(request.getSymbol()), GetParam().symbol);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RequestText,
    testing::Values(
        TextCase{"CommandFirst",
                 [](RequestImpl& r) {
                     r.setCommand(tivra::SUBSCRIBE);
                     r.add(4, 100);
                     r.add(5, std::string("IBM"));
                 },
                 "5022=Subscribe|4=100|5=IBM|", 100, "IBM"},
        TextCase{"CommandLastStaysLast",
                 [](RequestImpl& r) {
                     r.add(5, std::string("IBM"));
                     r.setCommand(tivra::QUERYSNAP);
                 },
                 "5=IBM|5022=QuerySnap|", -1, "IBM"},
        TextCase{"SecondCommandIsAppended",
                 [](RequestImpl& r) {
                     r.setCommand(tivra::QUERYSNAP);
                     r.setCommand(tivra::GETALLUSERS);
                 },
                 "5022=QuerySnap|5022=GetAllUsers|", -1, ""},
        TextCase{"WhiteSpaceAroundATextIsTrimmed",
                 [](RequestImpl& r) { r.add(5, std::string(" \t IBM \n")); }, "5=IBM|", -1, "IBM"},
        TextCase{"OnlyWhiteSpaceLeavesAnEmptyValue", [](RequestImpl& r) { r.add(5, std::string("   ")); },
                 "5=|", -1, ""},
        TextCase{"BytesAboveAsciiAreKept", [](RequestImpl& r) { r.add(5, std::string("\xFF\xA0")); },
                 "5=\xFF\xA0|", -1, "\xFF\xA0"},
        TextCase{"LongSymbolIsCutForRoutingOnly", [](RequestImpl& r) { r.add(5, kLong); }, "5=" + kLong + "|",
                 -1, std::string(32, 'X')},
        TextCase{"TextUpToItsLimit", [](RequestImpl& r) { r.add(3974, std::string(4095, 'Y') + '\n'); },
                 "3974=" + std::string(4095, 'Y') + "|", -1, ""},
        TextCase{"NumericSymbolIsNotSeenByRouting", [](RequestImpl& r) { r.add(5, 77); }, "5=77|", -1, ""},
        TextCase{"SourceAsText", [](RequestImpl& r) { r.add(4, std::string(" 922 ")); }, "4=922|", 922, ""},
        TextCase{"SourceOf64BitsIsCut", [](RequestImpl& r) { r.add(4, int64_t{0x100000007}); },
                 "4=4294967303|", 7, ""},
        TextCase{"SmallestTag", [](RequestImpl& r) { r.add(5052, std::numeric_limits<int64_t>::min()); },
                 "5052=-9223372036854775808|", -1, ""},
        TextCase{"ReservedTokensAreRefusedInEveryForm",
                 [](RequestImpl& r) {
                     for (int token : {5022, 5026}) {
                         r.add(token, 1);
                         r.add(token, int64_t{1});
                         r.add(token, std::string("Subscribe"));
                     }
                     r.setCommand(static_cast<tivra::Commands>(24));
                 },
                 "", -1, ""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(RequestImpl, BadCommandIsRememberedButNotSet) {
    RequestImpl request;
    request.setCommand(static_cast<tivra::Commands>(30));
    EXPECT_FALSE(request.isCommandSet());
    EXPECT_EQ(static_cast<int>(request.getCommand()), 30);
}

TEST(RequestImpl, AValueThatAHubCouldMisreadIsRefusedUnshownAndRemembered) {
    using namespace std::string_literals;
    for (const std::string& value : {"IBM|5022=UnsubscribeWildCard"s, "IB\0M"s, "IB\x03M"s, "IB\x1bM"s,
                                     "IB\x7fM"s, std::string(4096, 'Y')}) {
        RequestImpl request;
        LogCapture log;
        request.add(5, value);
        request.add(4, 100);
        EXPECT_EQ(request.getText(), "4=100|");
        EXPECT_STREQ(request.getSymbol(), "");
        EXPECT_TRUE(request.isIncomplete());
        EXPECT_THAT(log.lines(), testing::ElementsAre(testing::StartsWith(
                                     "WARN: Invalid value for parameter (5) passed to Request::add: it ")));
        request.clearRequest();
        EXPECT_FALSE(request.isIncomplete());
    }
}

TEST(RequestImpl, TokenNumbersAreCollectedInEveryForm) {
    RequestImpl request;
    request.add(5035, 3123);
    request.add(5035, int64_t{3125});
    request.add(5035, std::string("3126"));
    EXPECT_EQ(request.getKVNTokenNums(), (std::vector<int32_t>{3123, 3125, 3126}));
}

TEST(RequestImpl, CompareStringIgnoresTheOrderOfPairs) {
    RequestImpl first, second;
    first.setCommand(tivra::SUBSCRIBE);
    first.add(4, 100);
    first.add(5, std::string("IBM"));
    first.add(4, 9);
    second.add(4, std::string("9"));
    second.add(5, std::string("IBM "));
    second.setCommand(tivra::SUBSCRIBE);
    second.add(4, int64_t{100});
    EXPECT_EQ(first.getCompareString(), "0|4=100|4=9|5=IBM");
    EXPECT_EQ(first.getCompareString(), second.getCompareString());
    second.add(5026, 1);
    second.add(4, 100);
    EXPECT_EQ(second.getCompareString(), "0|4=100|4=100|4=9|5=IBM");
}

TEST(RequestImpl, GeneratedTagSurvivesClearRequest) {
    CountingTags tags;
    RequestImpl request(&tags);
    EXPECT_FALSE(request.hasGeneratedTag());
    EXPECT_EQ(request.generateTag(), 18);
    request.add(4, 1);
    request.add(5035, 2);
    request.add(5, std::string("IBM"));
    request.clearRequest();
    EXPECT_TRUE(request.getText().empty());
    EXPECT_TRUE(request.getKVNTokenNums().empty());
    EXPECT_STREQ(request.getSymbol(), "");
    EXPECT_EQ(request.getCompareString(), "0");
    EXPECT_EQ(request.getSrcid(), -1);
    EXPECT_TRUE(request.hasGeneratedTag());
    EXPECT_EQ(request.getGeneratedTag(), 18);
    request.consumeGeneratedTag();
    EXPECT_FALSE(request.hasGeneratedTag());
}

TEST(RequestImpl, OutlivesItsSession) {
    CountingTags tags;
    RequestImpl request(&tags);
    request.detachSession();
    EXPECT_EQ(request.generateTag(), 0);
    EXPECT_FALSE(request.hasGeneratedTag());
    EXPECT_EQ(tags.next, 18);
}
