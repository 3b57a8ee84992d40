#include "request/Watchlist.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "MakeRequest.h"
#include "request/StandingRequest.h"

using namespace tivra_internal;

namespace {

HubClient* hub(uintptr_t number) {
    return reinterpret_cast<HubClient*>(number * 64); // an identity; nobody looks inside
}

class WatchlistTest : public testing::Test {
protected:
    void list(int64_t tag, tivra::Commands command, const std::string& symbol = "IBM") {
        watchlist.add(tag, *makeRequest(tag, command, symbol));
    }

    std::string unsubscribeText(int64_t tag, int64_t subscription) {
        const auto request = makeUnsubscribe(tag, subscription);
        watchlist.add(tag, *request);
        EXPECT_EQ(request->getTag(), tag);
        lastUnsubTag = request->getUnsubtag();
        return request->getKVNCommand();
    }

    [[nodiscard]] std::vector<int64_t> tags() const {
        std::vector<int64_t> result;
        int64_t last = 0;
        while (auto request = watchlist.getNextRequest(last)) {
            last = request->getTag();
            result.push_back(last);
        }
        return result;
    }

    Watchlist watchlist;
    int64_t lastUnsubTag = 0;
};

using Tags = std::vector<int64_t>;

} // namespace

TEST_F(WatchlistTest, UnsubscribeIsWrittenFromTheSubscription) {
    struct Case {
        tivra::Commands command;
        const char* word;
    };
    int64_t tag = 20;
    for (const Case& c :
         {Case{tivra::SUBSCRIBE, "Unsubscribe"}, Case{tivra::QUERYSNAPANDSUBSCRIBE, "Unsubscribe"},
          Case{tivra::QUERYDEPTHANDSUBSCRIBE, "Unsubscribe"},
          Case{tivra::SUBSCRIBEWILDCARD, "UnsubscribeWildCard"},
          Case{tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "Unsubscribe"}}) {
        list(tag, c.command);
        EXPECT_EQ(unsubscribeText(tag + 100, tag),
                  "5022=" + std::string(c.word) + "|4=100|5=IBM|5026=" + std::to_string(tag + 100));
        EXPECT_EQ(lastUnsubTag, tag);
        ++tag;
    }
    EXPECT_EQ(watchlist.size(), 5U) << "subscriptions leave when the hubs have processed the unsubscribe";
}

TEST_F(WatchlistTest, RefusedUnsubscribesGoOutWithAWordInTheSymbolsPlace) {
    list(20, tivra::QUERYSNAP);
    EXPECT_EQ(unsubscribeText(21, 20), "5026=21|5022=Unsubscribe||5=UNSUBOFNONSUBNOTALLOWEDWITHWATCHLIST");
    EXPECT_EQ(lastUnsubTag, -1);
    EXPECT_EQ(unsubscribeText(22, 999), "5026=22|5022=Unsubscribe||5=UNSUBTAGNOTFOUNDWATCHLIST");
    EXPECT_EQ(unsubscribeText(23, -1), "5026=23|5022=Unsubscribe||5=UNSUBTAGNOTFOUNDWATCHLIST");
    EXPECT_EQ(lastUnsubTag, -1);
}

TEST_F(WatchlistTest, RepeatedCommandReplacesTheOlderTag) {
    list(20, tivra::SUBSCRIBE);
    list(21, tivra::SUBSCRIBE);
    EXPECT_EQ(unsubscribeText(22, 20), "5026=22|5022=Unsubscribe||5=UNSUBTAGNOTFOUNDWATCHLIST");
    list(23, tivra::SUBSCRIBE);
    EXPECT_EQ(tags(), (Tags{20, 21, 23})) << "each may still be owed an answer";
    unsubscribeText(24, 23);
    watchlist.forgetUnsubscribed();
    EXPECT_EQ(watchlist.size(), 0U);
}

TEST_F(WatchlistTest, ListedTagKeepsItsEntryAndNotTheCommandOfTheRefusedOne) {
    list(20, tivra::SUBSCRIBE, "IBM");
    list(20, tivra::SUBSCRIBE, "AAPL");
    EXPECT_STREQ(watchlist.getNextRequest(0)->getSymbol(), "IBM");
    list(21, tivra::SUBSCRIBE, "AAPL");
    EXPECT_EQ(tags(), (Tags{20, 21}));
}

TEST_F(WatchlistTest, HubsShareARequestUntilRoutingHasChangedIt) {
    const auto request = makeRequest(20, tivra::SUBSCRIBE, "IBM");
    watchlist.add(20, *request);
    const auto shared = watchlist.share(20, *request);
    EXPECT_EQ(watchlist.share(20, *request), shared);
    EXPECT_NE(watchlist.share(21, *request), shared);
    request->altIndex.emplace_back();
    EXPECT_EQ(watchlist.share(20, *request)->makeRequest()->altIndex.size(), 1U);
    request->altIndex.clear();
    request->resubHB = true;
    EXPECT_TRUE(watchlist.share(20, *request)->makeRequest()->resubHB);
    request->resubHB = false;
    ASSERT_EQ(request->convertSubscribeToSnap(), 0U);
    EXPECT_EQ(watchlist.share(20, *request)->makeRequest()->getKVNCommand(), request->getKVNCommand());
    EXPECT_EQ(watchlist.getNextRequest(0)->getKVNCommand(), shared->makeRequest()->getKVNCommand());
}

TEST_F(WatchlistTest, ConflationIntervalIsNotListedAndQueriesAre) {
    list(20, tivra::SETCONFLATIONINTERVAL);
    list(21, tivra::QUERYSNAP);
    list(22, tivra::LISTENUMERATION);
    EXPECT_EQ(tags(), (Tags{21, 22}));
    EXPECT_EQ(watchlist.highestTag(), 22);
    EXPECT_EQ(watchlist.getNextRequest(22), nullptr);
}

TEST_F(WatchlistTest, FanOutLeavesWithItsLastHub) {
    list(20, tivra::QUERYSNAP);
    watchlist.setExpectedResponses(20, 2);
    watchlist.addHub(20, hub(1));
    watchlist.addHub(20, hub(1));
    watchlist.removeHub(20, hub(1));
    ASSERT_EQ(watchlist.size(), 1U) << "the second hub hasn't reported its write yet";
    EXPECT_EQ(watchlist.getNextRequest(0)->outstandingResponses, 1U);
    watchlist.addHub(20, hub(2));
    watchlist.removeHub(20, hub(2));
    EXPECT_EQ(watchlist.size(), 0U);
    list(21, tivra::QUERYSNAP);
    EXPECT_EQ(watchlist.size(), 1U) << "the command of the removed tag must be forgotten too";
}

TEST_F(WatchlistTest, HubsThatAreLeftHoldTheTag) {
    list(20, tivra::SUBSCRIBE);
    watchlist.setExpectedResponses(20, 1);
    watchlist.addHub(20, hub(1));
    watchlist.addHub(20, hub(2));
    watchlist.removeHub(20, hub(1));
    EXPECT_EQ(watchlist.size(), 1U);
    // The count is 0 now, as after a restart; it counts as the last one and must not wrap.
    watchlist.removeHub(20, hub(2));
    EXPECT_EQ(watchlist.size(), 0U);
    watchlist.removeHub(20, hub(2));
}

TEST_F(WatchlistTest, LoweredCountStaysAboveZero) {
    list(20, tivra::SUBSCRIBE);
    watchlist.setExpectedResponses(20, 3);
    for (int i = 0; i < 4; ++i)
        watchlist.lowerExpectedResponses(20);
    EXPECT_EQ(watchlist.getNextRequest(0)->outstandingResponses, 1U);
    watchlist.lowerExpectedResponses(99);
}

TEST_F(WatchlistTest, RestartForgetsTheHubs) {
    list(20, tivra::SUBSCRIBE);
    watchlist.addHub(20, hub(1));
    watchlist.removeAllHubs();
    watchlist.setExpectedResponses(20, 1);
    watchlist.removeHub(20, hub(1));
    EXPECT_EQ(watchlist.size(), 1U);
}
