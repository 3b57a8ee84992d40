#include "request/HubWatchlist.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "MakeRequest.h"
#include "request/HubName.h"
#include "request/RequestSender.h"
#include "request/Watchlist.h"

using namespace tivra_internal;

namespace {

class FakeSession : public HubName, public RequestSender {
public:
    [[nodiscard]] std::string getHubAddr() const override { return "hub:1"; }
    bool sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* hub, bool force, int src) override {
        EXPECT_TRUE(force);
        EXPECT_EQ(src, 0);
        lastHub = hub;
        if (refuse)
            return false;
        sent.push_back(std::move(request));
        return true;
    }
    bool refuse = false;
    HubClient* lastHub = nullptr;
    std::vector<std::unique_ptr<RequestInternal>> sent;
};

class HubWatchlistTest : public testing::Test {
protected:
    /// As a request passes through the session and is then written to the hub.
    void sendAndWrite(int64_t tag, tivra::Commands command, const std::string& symbol = "IBM") {
        auto request = makeRequest(tag, command, symbol);
        session.add(tag, *request);
        session.setExpectedResponses(tag, 1);
        list.add(tag, std::move(request));
    }

    void unsubscribe(int64_t tag, int64_t subscription) {
        auto request = makeUnsubscribe(tag, subscription);
        session.add(tag, *request);
        list.add(tag, std::move(request));
    }

    HubClient* const hub = reinterpret_cast<HubClient*>(64); // an identity; nobody looks inside
    FakeSession fake;
    Watchlist session;
    HubWatchlist list{hub, fake, session, fake};
};

} // namespace

TEST_F(HubWatchlistTest, ResponseEndsASnapAndKeepsASubscription) {
    sendAndWrite(20, tivra::QUERYSNAP);
    sendAndWrite(21, tivra::SUBSCRIBE);
    EXPECT_FALSE(list.handleResponse(20, 0));
    EXPECT_FALSE(list.handleResponse(21, 0));
    list.add(21, makeRequest(21, tivra::SUBSCRIBE)); // a replay must not take itself off
    list.add(22, makeRequest(22, tivra::SETCONFLATIONINTERVAL));
    EXPECT_EQ(list.size(), 1U);
    EXPECT_EQ(session.size(), 1U);
    EXPECT_EQ(session.highestTag(), 21);
    tivra::Commands command = tivra::QUERYSNAP;
    EXPECT_FALSE(list.getCommand(20, command));
    EXPECT_TRUE(list.getCommand(21, command));
    EXPECT_EQ(command, tivra::SUBSCRIBE);
    for (int times = 0; times < 2; ++times) {
        EXPECT_FALSE(list.handleResponse(21, -3)) << "a refusal takes it off both lists";
        EXPECT_FALSE(list.handleResponse(-1, 0));
        EXPECT_EQ(list.size() + session.size(), 0U);
    }
}

TEST_F(HubWatchlistTest, RepeatedCommandLeavesTheNewerTagInBothLists) {
    sendAndWrite(20, tivra::SUBSCRIBE);
    EXPECT_FALSE(list.handleResponse(20, 0));
    list.noteReplay(20);
    sendAndWrite(21, tivra::SUBSCRIBE);
    EXPECT_EQ(list.size() + session.size(), 4U) << "the older one is owed an answer";
    EXPECT_FALSE(list.handleResponse(20, 0));
    EXPECT_FALSE(list.handleResponse(21, 0));
    sendAndWrite(25, tivra::SUBSCRIBE);
    EXPECT_EQ(list.size() + session.size(), 2U);
    EXPECT_EQ(list.getNextRequest(0)->getTag(), 25);
    sendAndWrite(26, tivra::SUBSCRIBE);
    unsubscribe(22, 26);
    unsubscribe(24, 26);
    EXPECT_EQ(list.size() + session.size(), 0U);
    sendAndWrite(23, tivra::SUBSCRIBE);
    EXPECT_EQ(list.size(), 1U);
}

TEST_F(HubWatchlistTest, BusyHubGetsOneRetryAtATime) {
    sendAndWrite(20, tivra::SUBSCRIBE);
    EXPECT_TRUE(list.handleResponse(20, -218));
    EXPECT_TRUE(list.handleResponse(20, -218)) << "consumed, though a retry waits already";
    ASSERT_EQ(fake.sent.size(), 1U);
    EXPECT_TRUE(fake.sent[0]->isWLRetry);
    EXPECT_EQ(fake.sent[0]->getTag(), 20);
    EXPECT_EQ(fake.lastHub, hub);
    list.endRetry(20);
    EXPECT_TRUE(list.handleResponse(20, -218));
    EXPECT_EQ(fake.sent.size(), 2U);
    EXPECT_FALSE(list.getNextRequest(0)->isWLRetry);
    // A tag that left the list with its retry still waiting begins anew.
    EXPECT_FALSE(list.handleResponse(20, -3));
    sendAndWrite(20, tivra::SUBSCRIBE);
    EXPECT_TRUE(list.handleResponse(20, -218));
    EXPECT_EQ(fake.sent.size(), 3U);
}

TEST_F(HubWatchlistTest, BusyAnswerReachesTheApplicationWhenNothingCanBeRetried) {
    EXPECT_FALSE(list.handleResponse(20, -218));
    sendAndWrite(21, tivra::SUBSCRIBE);
    fake.refuse = true;
    EXPECT_FALSE(list.handleResponse(21, -218));
    fake.refuse = false;
    EXPECT_TRUE(list.handleResponse(21, -218));
    EXPECT_EQ(fake.sent.size(), 1U);
}

TEST_F(HubWatchlistTest, ReplayAscendsByTagAndCarriesWhatTheAnswerNeeds) {
    for (int64_t tag : {30, 20, 25}) {
        auto request = makeRequest(tag, tivra::SUBSCRIBE, "S" + std::to_string(tag));
        request->altIndex.emplace_back().value = "A";
        list.add(tag, std::move(request));
    }
    std::vector<int64_t> order;
    int64_t last = 0;
    while (auto request = list.getNextRequest(last)) {
        last = request->getTag();
        order.push_back(last);
        EXPECT_EQ(request->getHUB(), hub);
        EXPECT_EQ(request->altIndex.size(), 1U);
    }
    EXPECT_EQ(order, (std::vector<int64_t>{20, 25, 30}));
    EXPECT_EQ(list.size(), 3U);
}
