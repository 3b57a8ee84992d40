#include "request/RequestInternal.h"

#include <string>

#include <gtest/gtest.h>

#include "MakeRequest.h"

using namespace tivra_internal;

TEST(RequestInternal, TagIsStampedOnceAndLaterPairsLeadWithASeparator) {
    auto request = makeRequest(4711, tivra::SUBSCRIBE);
    EXPECT_EQ(request->getKVNCommand(), "5022=Subscribe|4=100|5=IBM|5026=4711");
    request->setTag(1);
    EXPECT_EQ(request->getTag(), 4711);
    request->add(5035, 3);
    request->add(5035, int64_t{4});
    request->add(5, std::string("X"));
    EXPECT_EQ(request->getKVNCommand(), "5022=Subscribe|4=100|5=IBM|5026=4711|5035=3|5035=4|5=X");
}

TEST(RequestInternal, CopyKeepsEverythingButTheAlternateIndexes) {
    auto request = makeRequest(20, tivra::SUBSCRIBE);
    request->resubHB = request->resubHubStatus = request->isWLRetry = true;
    request->outstandingResponses = 3;
    request->altIndex.emplace_back();
    const RequestInternal copy(request.get());
    EXPECT_EQ(copy.getKVNCommand(), request->getKVNCommand());
    EXPECT_EQ(copy.getTag(), 20);
    EXPECT_TRUE(copy.resubHB && copy.resubHubStatus && copy.isWLRetry && copy.isCommandSet());
    EXPECT_EQ(copy.outstandingResponses, 3U);
    EXPECT_TRUE(copy.altIndex.empty());
    EXPECT_EQ(request->copyWithAltIndex()->altIndex.size(), 1U);
}

TEST(RequestInternal, TagReferredToIsTakenFromEveryForm) {
    RequestImpl number, longNumber, text;
    number.add(5052, 7);
    longNumber.add(5052, int64_t{1} << 40);
    text.add(5052, std::string(" 1099511627776"));
    EXPECT_EQ(RequestInternal(&number).getUnsubtag(), 7);
    EXPECT_EQ(RequestInternal(&longNumber).getUnsubtag(), int64_t{1} << 40);
    EXPECT_EQ(RequestInternal(&text).getUnsubtag(), int64_t{1} << 40);
}

TEST(RequestInternal, ModifyTagTouchesWholePairsOnly) {
    struct Case {
        int token;
        std::string value;
        std::string after;
    };
    // A value that looks like the tag pair and a token that ends in it must stay as they are.
    for (const Case& c : {Case{5, "x5026=18", "5=x5026=18|5026=99"}, Case{15026, "18", "15026=18|5026=99"}}) {
        RequestImpl builder;
        builder.add(c.token, c.value);
        RequestInternal request(&builder);
        request.setTag(18);
        request.modifyTag(99, true);
        EXPECT_EQ(request.getKVNCommand(), c.after);
        EXPECT_EQ(request.getUnsubtag(), 18);
        EXPECT_EQ(request.getTag(), 99);
    }
}

TEST(RequestInternal, CloneTakesTheTagAndDropsThePairs) {
    auto request = makeRequest(30, tivra::SUBSCRIBE);
    const auto other = makeRequest(20, tivra::QUERYSNAPANDSUBSCRIBE);
    other->outstandingResponses = 3;
    other->resubHB = true;
    request->cloneRequest(other.get());
    EXPECT_EQ(request->outstandingResponses, 3U);
    EXPECT_TRUE(request->resubHB);
    EXPECT_EQ(request->getTag(), 20);
    EXPECT_EQ(request->getKVNCommand(), other->getKVNCommand());
    EXPECT_EQ(request->getCompareString(), "6");
}

TEST(RequestInternal, OnlyACommandPairIsConvertedToASnap) {
    auto request = makeRequest(20, tivra::SUBSCRIBE);
    EXPECT_EQ(request->convertSubscribeToSnap(), 0U);
    EXPECT_EQ(request->getKVNCommand(), "5022=QuerySnapAndSubscribe|4=100|5=IBM|5026=20");
    EXPECT_EQ(request->getCommand(), tivra::QUERYSNAPANDSUBSCRIBE);
    EXPECT_EQ(request->convertSubscribeToSnap(), std::string::npos);

    RequestImpl builder;
    builder.add(5028, std::string("5022=Subscribe"));
    RequestInternal noCommand(&builder);
    EXPECT_EQ(noCommand.convertSubscribeToSnap(), std::string::npos);
    EXPECT_EQ(noCommand.getKVNCommand(), "5028=5022=Subscribe|");
    builder.setCommand(tivra::SUBSCRIBEWILDCARD);
    builder.setCommand(tivra::SUBSCRIBE);
    RequestInternal twoCommands(&builder);
    EXPECT_EQ(twoCommands.convertSubscribeToSnap(), 43U);
    EXPECT_EQ(twoCommands.getKVNCommand(),
              "5028=5022=Subscribe|5022=SubscribeWildCard|5022=QuerySnapAndSubscribe|");
}
