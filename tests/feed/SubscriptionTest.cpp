// Subscriptions by the group, by pattern and of order books, and what they hear besides data.
#include "FeedFixture.h"

#include <algorithm>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;
using tivra::DataState;
using tivra::Error;
using tivra::Gap;
using tivra::Instrument;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

class SubscriptionTest : public FeedTest {
protected:
    /// Lines of what subscriptions of several symbols hear: "IBM update 2", "IBM Live".
    tivra::SubscriptionHandlers write() {
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [this](const tivra::Update& update) {
            std::ostringstream line;
            line << update.symbol() << (update.kind() == tivra::Update::Kind::Image ? " image" : " update");
            if (update.kind() != tivra::Update::Kind::Image)
                line << ' ' << update.get<double>(bid).value_or(-1.0);
            story.add(line.str());
        };
        handlers.onState = [this](const tivra::SubscriptionView& view, const tivra::StateChange& change) {
            story.add(std::string(view.symbol()) + ' ' + nameOf(change.to));
        };
        handlers.onGap = [this](const tivra::SubscriptionView& view, const Gap& gap) {
            EXPECT_LT(gap.from, gap.to);
            constexpr const char* kCauses[] = {"loss", "withdrawal", "overrun", "conflation"};
            story.add(std::string(view.symbol()) + " gap by " + kCauses[static_cast<int>(gap.cause)] +
                      (gap.bytes ? ' ' + std::to_string(*gap.bytes) : ""));
        };
        return handlers;
    }
    [[nodiscard]] bool waitForSubscribed(std::size_t count) {
        return hub.waitFor([count](const auto& now) { return now.subscriptions == count; });
    }
    void push(const char* symbol, int price) { hub.pushRecord(Record(100, symbol).add(token::BID, price)); }
};

} // namespace

TEST_F(SubscriptionTest, AGroupIsMadeChangedAndEndedAsOne) {
    tivra::SubscriptionGroup group = feed.subscribeAll({{100, "IBM"}, {100, "AIG"}, {100, "IBM"}}, write());
    ASSERT_EQ(group.size(), 2U);
    EXPECT_EQ(group.add({{100, "AIG"}, {100, "BAC"}, {100, "NONE.SUCH"}}), 2U);
    ASSERT_TRUE(story.waitUntil([&] { return group.statistics().pending == 0; }));
    EXPECT_EQ(group.statistics().live, 3U);
    EXPECT_EQ(group.state({100, "NONE.SUCH"}), DataState::Refused);
    EXPECT_THAT(group.error({100, "NONE.SUCH"})->what(), HasSubstr("has refused"));
    EXPECT_EQ(group.state({100, "GE"}), std::nullopt);

    EXPECT_THROW(group.add({{100, "GE"}, {100, "G|E"}}), Error);
    EXPECT_FALSE(group.contains({100, "GE"}));
    EXPECT_EQ(group.remove({{100, "AIG"}, {100, "GE"}}), 1U);
    ASSERT_TRUE(hub.waitForCommand("Unsubscribe"));
    push("AIG", 1);
    push("BAC", 2);
    ASSERT_TRUE(story.waitFor("BAC update 2"));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("AIG update 1")));

    std::set<std::string> symbols;
    group.forEach([&](const tivra::SubscriptionView& view) { symbols.emplace(view.symbol()); });
    EXPECT_THAT(symbols, ElementsAre("BAC", "IBM", "NONE.SUCH"));
    group.close();
    EXPECT_TRUE(waitUntilNoneIsLeft(feed));
    EXPECT_THROW(group.add({{100, "GE"}}), Error);
}

TEST_F(SubscriptionTest, AnImageThatNamesAnotherSymbolBringsNoUpdatesOfThat) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    const auto request = hub.waitForCommand("QuerySnapAndSubscribe");
    ASSERT_TRUE(request);
    hub.pushToAll(
        Record(100, "ELSE").add(token::TAG, static_cast<long long>(request->tag)).add(token::BID, 1));
    hub.pushToAll(Record(100, "ELSE").add(token::BID, 2));
    push("IBM", 3);
    ASSERT_TRUE(story.waitFor("IBM update 3"));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("ELSE update 2")));
}

TEST_F(SubscriptionTest, APatternCoversWhatMatchesNowAndWhatComesLater) {
    auto pattern = feed.subscribeWildcard(100, "I*", write());
    ASSERT_TRUE(story.waitFor("I* Live"));
    EXPECT_THAT(story.lines(), testing::Contains("IBM image"));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("AIG image")));
    push("INEW", 7);
    ASSERT_TRUE(story.waitFor("INEW update 7"));
    // A subscription of one of them stands beside it, and both go their ways.
    Story own;
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(own, bid));
    ASSERT_TRUE(own.waitFor("Live"));
    push("IBM", 3);
    ASSERT_TRUE(own.waitFor("update 3"));
    ASSERT_TRUE(story.waitFor("IBM update 3"));
    pattern.close();
    ASSERT_TRUE(waitForSubscribed(1));
    push("IBM", 4);
    ASSERT_TRUE(own.waitFor("update 4"));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("IBM update 4")));
}

TEST_F(SubscriptionTest, APatternHearsOfALossOnceAndComesBack) {
    auto pattern = feed.subscribeWildcard(100, "I*", write());
    ASSERT_TRUE(story.waitFor("I* Live"));
    hub.dropConnections();
    ASSERT_TRUE(story.waitFor("I* gap by loss"));
    ASSERT_TRUE(story.waitUntil([&] { return pattern.state() == DataState::Live; }));
    const std::vector<std::string> lines = story.lines();
    for (const char* const line : {"I* Stale", "I* Recovering", "I* gap by loss"})
        EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
}

TEST_F(SubscriptionTest, AnOrderBookHasALineForEachImageAndThenItsChanges) {
    hub.pushRecord(Record(100, "IBM").add(token::BID, 1).add(token::ASK, 2));
    auto book = feed.subscribeDepth({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    EXPECT_THAT(story.lines(), testing::Contains("IBM image"));
    push("IBM", 5);
    ASSERT_TRUE(story.waitFor("IBM update 5"));
    EXPECT_TRUE(hub.waitForCommand("QueryDepthAndSubscribe"));
    // The hub knows of symbols alone, and forgets both.
    Story own;
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(own, bid));
    ASSERT_TRUE(own.waitFor("Live"));
    hub.clearRequests();
    book.close();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe") && waitForSubscribed(1));
    push("IBM", 6);
    EXPECT_TRUE(own.waitFor("update 6"));
}

TEST_F(SubscriptionTest, AWithdrawnSourceIsStaleUntilItIsGrantedAgain) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    hub.withdrawSource(100);
    ASSERT_TRUE(story.waitFor("IBM Stale"));
    hub.clearRequests();
    hub.grantSource(100);
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
    EXPECT_THAT(story.lines(), ElementsAre("IBM image", "IBM Live", "IBM Stale", "IBM Recovering",
                                           "IBM gap by withdrawal", "IBM image", "IBM Live"));
    // Under the tag that it was asked for with last.
    ASSERT_TRUE(waitForSubscribed(1));
    ibm.close();
    EXPECT_TRUE(waitForSubscribed(0));
}

TEST_F(SubscriptionTest, UpdatesBetweenTheGrantOfASourceAndItsImageStandBetweenGaps) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    hub.withdrawSource(100);
    ASSERT_TRUE(story.waitFor("IBM Stale"));
    hub.clearRequests();
    hub.ignore("QuerySnapAndSubscribe", 1);
    hub.grantSource(100);
    const auto request = hub.waitForCommand("QuerySnapAndSubscribe");
    ASSERT_TRUE(request);
    for (const int price : {7, 8})
        hub.pushToAll(Record(100, "IBM").add(token::BID, price));
    hub.pushToAll(
        Record(100, "IBM").add(token::TAG, static_cast<long long>(request->tag)).add(token::BID, 9));
    hub.pushToAll(Record(100, "IBM").add(token::BID, 10));
    ASSERT_TRUE(story.waitFor("IBM update 10"));
    EXPECT_THAT(story.lines(), ElementsAre("IBM image", "IBM Live", "IBM Stale", "IBM Recovering",
                                           "IBM gap by withdrawal", "IBM update 7", "IBM update 8",
                                           "IBM gap by withdrawal", "IBM image", "IBM update 10"));
}

TEST_F(SubscriptionTest, WhatComesByTheFormerRequestOnAnotherConnectionStandsBetweenGapsToo) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    hub.withdraw("demo", 100);
    ASSERT_TRUE(story.waitFor("IBM Stale"));
    hub.ignore("QuerySnapAndSubscribe", 2);
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    hub.pushToAll(Record(100, "IBM").add(token::BID, 7));
    ASSERT_TRUE(story.waitFor("IBM update 7"));
    hub.clearRequests();
    hub.grant("demo", 100);
    const auto request = hub.waitForCommand("QuerySnapAndSubscribe");
    ASSERT_TRUE(request);
    hub.pushToAll(
        Record(100, "IBM").add(token::TAG, static_cast<long long>(request->tag)).add(token::BID, 9));
    hub.pushToAll(Record(100, "IBM").add(token::BID, 10));
    ASSERT_TRUE(story.waitFor("IBM update 10"));
    EXPECT_THAT(story.lines(),
                ElementsAre("IBM image", "IBM Live", "IBM Stale", "IBM Recovering", "IBM gap by withdrawal",
                            "IBM update 7", "IBM gap by withdrawal", "IBM image", "IBM update 10"));
}

TEST_F(SubscriptionTest, WhatAWithdrawnSourceIsRefusedForComesBackWithIt) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    // The word of the withdrawal, then the refusal of what is asked for again.
    hub.withdraw("demo", 100);
    ASSERT_TRUE(story.waitFor("IBM Stale"));
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    ASSERT_TRUE(hub.waitForConnections(1));
    hub.grant("demo", 100);
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
    // The permission comes back while nobody is there to hear of it.
    hub.withdraw("demo", 100);
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Stale; }));
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    hub.stop();
    hub.grant("demo", 100);
    hub.start();
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
    // The refusal first.
    hub.refuse("QuerySnapAndSubscribe", tivra_sim::status::NO_PERMISSION, 1);
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    hub.withdraw("demo", 100);
    hub.grant("demo", 100);
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
    push("IBM", 6);
    EXPECT_TRUE(story.waitFor("IBM update 6"));
    // No withdrawal explains this one.
    hub.refuse("QuerySnapAndSubscribe", tivra_sim::status::UNKNOWN_SYMBOL, 1);
    hub.dropConnections();
    EXPECT_TRUE(story.waitFor("IBM Refused"));
}

TEST_F(SubscriptionTest, WhatTheHubLeavesOutIsAGapInItsPlace) {
    auto ibm = feed.subscribe({100, "IBM"}, write());
    ASSERT_TRUE(story.waitFor("IBM Live"));
    push("IBM", 1);
    hub.pushHubStatus(500, 0);
    push("IBM", 2);
    hub.pushHubStatus(500, 0); // nothing new
    hub.pushJit(3);
    push("IBM", 3);
    hub.pushJit(0);
    push("IBM", 4);
    hub.pushHubStatus(700, 0);
    ASSERT_TRUE(story.waitFor("IBM gap by overrun 200"));
    EXPECT_THAT(story.lines(), ElementsAre("IBM image", "IBM Live", "IBM update 1", "IBM gap by overrun 500",
                                           "IBM update 2", "IBM update 3", "IBM gap by conflation",
                                           "IBM update 4", "IBM gap by overrun 200"));
    EXPECT_EQ(ibm.state(), DataState::Live);
}
