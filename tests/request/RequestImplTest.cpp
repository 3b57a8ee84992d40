#include "request/RequestImpl.h"

#include <limits>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include "request/TagSource.h"
#include "support/LogCapture.h"

using namespace tivra_internal;
using namespace std::string_literals;

namespace {

/// What is put into a request: a command, or a value under a token.
struct Piece {
    int token;
    std::variant<tivra::Commands, int, int64_t, std::string> value;
};

void put(RequestImpl& request, int, tivra::Commands command) {
    request.setCommand(command);
}

template<class Value>
void put(RequestImpl& request, int token, const Value& value) {
    request.add(token, value);
}

class CountingTags : public TagSource {
public:
    int64_t getNextTag() override { return next++; }
    int64_t next = 18;
};

} // namespace

TEST(RequestImpl, TextIsBuiltInCallOrder) {
    const std::string longText(40, 'X'), longest(4095, 'Y');
    const struct {
        std::vector<Piece> pieces;
        std::string text;
        int32_t srcid;
        std::string symbol;
    } cases[] = {
        {{{0, tivra::SUBSCRIBE}, {4, 100}, {5, "IBM"s}}, "5022=Subscribe|4=100|5=IBM|", 100, "IBM"},
        {{{5, "IBM"s}, {0, tivra::QUERYSNAP}}, "5=IBM|5022=QuerySnap|", -1, "IBM"},
        {{{0, tivra::QUERYSNAP}, {0, tivra::GETALLUSERS}}, "5022=QuerySnap|5022=GetAllUsers|", -1, ""},
        {{{0, tivra::SELECTUSERFILTERTOKENS}, {0, tivra::SETL2CONFLATIONINTERVAL}},
         "5022=SelectUserFilterTokens|5022=SetL2ConflationInterval|",
         -1,
         ""},
        {{{5, " \t IBM \n"s}}, "5=IBM|", -1, "IBM"},
        {{{5, "   "s}}, "5=|", -1, ""},
        {{{5, "\xFF\xA0"s}}, "5=\xFF\xA0|", -1, "\xFF\xA0"},
        // Routing sees 32 characters of a symbol, and none of a number.
        {{{5, longText}}, "5=" + longText + "|", -1, std::string(32, 'X')},
        {{{5, 77}}, "5=77|", -1, ""},
        {{{3974, longest + '\n'}}, "3974=" + longest + "|", -1, ""},
        {{{4, " 922 "s}}, "4=922|", 922, ""},
        {{{4, int64_t{0x100000007}}}, "4=4294967303|", 7, ""},
        {{{5052, std::numeric_limits<int64_t>::min()}}, "5052=-9223372036854775808|", -1, ""},
        // The library's own tokens, and a command that there isn't.
        {{{5022, 1}, {5022, int64_t{1}}, {5022, "Subscribe"s}}, "", -1, ""},
        {{{5026, 1}, {5026, int64_t{1}}, {5026, "1"s}, {0, static_cast<tivra::Commands>(24)}}, "", -1, ""},
    };
    for (const auto& c : cases) {
        RequestImpl request;
        for (const Piece& piece : c.pieces)
            std::visit([&](const auto& value) { put(request, piece.token, value); }, piece.value);
        EXPECT_EQ(request.getText(), c.text);
        EXPECT_EQ(request.getSrcid(), c.srcid) << c.text;
        EXPECT_EQ(request.getSymbol(), c.symbol) << c.text;
    }
}

TEST(RequestImpl, BadCommandIsRememberedButNotSet) {
    RequestImpl request;
    request.setCommand(static_cast<tivra::Commands>(30));
    EXPECT_FALSE(request.isCommandSet());
    EXPECT_EQ(static_cast<int>(request.getCommand()), 30);
}

TEST(RequestImpl, AValueThatAHubCouldMisreadIsRefusedUnshownAndRemembered) {
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
