// The pump of a hub thread: order, budget, refusals, replays.
#include <atomic>
#include <thread>

#include "hub/HubFixture.h"
#include "request/HubWatchlist.h"
#include "request/RequestImpl.h"

namespace tivra_internal {

namespace {

using testing::ElementsAre;

class HubEventReactorTest : public HubFixture {
protected:
    std::unique_ptr<RequestInternal> request(int64_t tag, HubClient* to, const std::string& symbol = "IBM",
                                             tivra::Commands command = tivra::SUBSCRIBE) {
        RequestImpl builder;
        builder.setCommand(command);
        builder.add(4, 558);
        builder.add(5, symbol.substr(0, 200));
        for (size_t done = 200; done < symbol.size(); done += 200)
            builder.add(3131, symbol.substr(done, 200));
        auto made = std::make_unique<RequestInternal>(&builder);
        made->setTag(tag);
        made->setHUB(to);
        return made;
    }
    void push(int64_t tag, const std::string& symbol = "IBM", tivra::Commands command = tivra::SUBSCRIBE) {
        std::unique_ptr<RequestInternal> made = request(tag, client.get(), symbol, command);
        ASSERT_TRUE(reactor->pushRequest(made, false));
        EXPECT_EQ(made, nullptr);
    }
    void comeUp(bool watchlist = false) {
        Options options;
        options.watchlist = watchlist;
        if (client == nullptr)
            makeClient(options);
        loginAndConverse(loneHub());
        ASSERT_TRUE(client->isReady());
    }
    /// The tags of the next requests; none may follow them.
    std::vector<int> arrivedTags(size_t count) {
        std::vector<int> tags;
        for (size_t i = 0; i < count; ++i)
            tags.push_back(tagOf(hub.readRequest()));
        EXPECT_FALSE(hub.hasRequest());
        return tags;
    }
    static int tagOf(const std::string& text) {
        const size_t at = text.rfind("5026=", 0) == 0 ? 0 : text.find("|5026=") + 1;
        return std::stoi(text.substr(at + 5));
    }
};

TEST_F(HubEventReactorTest, RequestsGoOutInOrderWithinTheBudget) {
    comeUp();
    for (int tag = 18; tag < 23; ++tag)
        push(tag);
    EXPECT_EQ(reactor->handle_hub_requests(0), 0);
    EXPECT_EQ(reactor->handle_hub_requests(3), 3);
    EXPECT_THAT(arrivedTags(3), ElementsAre(18, 19, 20));
    EXPECT_EQ(reactor->handle_hub_requests(500), 2);
    EXPECT_THAT(arrivedTags(2), ElementsAre(21, 22));
    EXPECT_EQ(reactor->handle_hub_requests(500), 0);
}

TEST_F(HubEventReactorTest, AFullQueueRefusesUnlessForcedAndLeavesTheRequestWithItsOwner) {
    makeClient();
    HubEventReactor small(1, 2);
    for (const int tag : {18, 19}) {
        auto made = request(tag, client.get());
        EXPECT_TRUE(small.pushRequest(made, false));
    }
    auto third = request(20, client.get());
    EXPECT_FALSE(small.pushRequest(third, false));
    ASSERT_NE(third, nullptr);
    EXPECT_TRUE(small.pushRequest(third, true));
    EXPECT_EQ(third, nullptr);
}

TEST_F(HubEventReactorTest, AHubThatIsStillComingUpHoldsTheOthersBack) {
    comeUp();
    Options options;
    options.index = 1;
    const std::unique_ptr<HubClient> unready = newClient(options);
    auto head = request(18, unready.get());
    ASSERT_TRUE(reactor->pushRequest(head, false));
    push(19);
    EXPECT_EQ(reactor->handle_hub_requests(500), 0);
    EXPECT_FALSE(hub.hasRequest());

    unready->suspendClient("no use");
    EXPECT_EQ(reactor->handle_hub_requests(500), 1) << "a hub that nobody dials holds nobody back";
    EXPECT_THAT(arrivedTags(1), ElementsAre(19));
    ASSERT_EQ(session.takenBack.size(), 1U);
    EXPECT_EQ(session.takenBack.front()->getTag(), 18);
}

TEST_F(HubEventReactorTest, ATextThatFitsNoFrameIsDroppedAndTheNextGoesOut) {
    comeUp();
    push(18, std::string(9000, 's'));
    push(19);
    EXPECT_EQ(reactor->handle_hub_requests(500), 1);
    EXPECT_THAT(arrivedTags(1), ElementsAre(19));
    EXPECT_GE(client->getFd(), 0);
}

TEST_F(HubEventReactorTest, AFailedSendKeepsTheRequestForTheNextTick) {
    comeUp();
    client->closeConnection();
    push(18);
    EXPECT_EQ(reactor->handle_hub_requests(500), 0);
    comeUp();
    EXPECT_EQ(reactor->handle_hub_requests(500), 1);
    EXPECT_THAT(arrivedTags(1), ElementsAre(18));
}

TEST_F(HubEventReactorTest, ABlockedHubStopsTheTickAndOneThatStallsInAFrameIsClosedAfterIt) {
    comeUp();
    session.stopping = true; // a frame once begun is given up at the first look
    const std::string symbol(8000, 's');
    for (int tag = 18; tag < 1018; ++tag) {
        auto made = request(tag, client.get(), symbol);
        ASSERT_TRUE(reactor->pushRequest(made, true));
    }
    int sent = 0;
    for (int pass = 0; pass < 1000 && client->getFd() >= 0; ++pass) {
        const int now = reactor->handle_hub_requests(500);
        sent += now;
        if (now == 0)
            break;
    }
    EXPECT_LT(sent, 1000) << "a peer that reads nothing can't have got them all";
    EXPECT_EQ(session.down, client->getFd() < 0 ? 1 : 0);
}

TEST_F(HubEventReactorTest, QueriesAreCountedAndRenewedSubscriptionsFollowTheirRequest) {
    comeUp();
    push(18, "IBM", tivra::QUERYSNAP);
    auto both = request(19, client.get());
    both->resubHB = true;
    both->resubHubStatus = true;
    ASSERT_TRUE(reactor->pushRequest(both, false));
    push(20);
    EXPECT_EQ(reactor->handle_hub_requests(500), 3);
    EXPECT_THAT(arrivedTags(5), ElementsAre(18, 19, 12, 13, 20));
    EXPECT_EQ(client->getResponseQueue()->getQueryCount(), 1);
}

TEST_F(HubEventReactorTest, ReplayGoesByTagBeforeTheQueueAndIsDoneInTheSameTick) {
    comeUp(true);
    push(19, "B");
    push(18, "A");
    push(20, "C");
    EXPECT_EQ(reactor->handle_hub_requests(500), 3);
    arrivedTags(3);
    client->closeConnection();
    push(21, "D");
    comeUp(true);
    session.told.clear();
    EXPECT_EQ(reactor->handle_hub_requests(2), 2);
    EXPECT_THAT(arrivedTags(2), ElementsAre(18, 19));
    EXPECT_EQ(reactor->handle_hub_requests(500), 2);
    EXPECT_THAT(arrivedTags(2), ElementsAre(20, 21));
    EXPECT_THAT(session.told, ElementsAre("replay 18", "replay 19", "replay 20"));
}

TEST_F(HubEventReactorTest, AClientThatClosesDuringAReplayHoldsNobodyBackAndStartsAnew) {
    comeUp(true);
    push(18, "A");
    push(19, "B");
    reactor->handle_hub_requests(500);
    arrivedTags(2);
    client->closeConnection();
    comeUp(true);
    EXPECT_EQ(reactor->handle_hub_requests(1), 1);
    client->closeConnection();

    Options options;
    options.index = 1;
    const std::unique_ptr<HubClient> other = std::exchange(client, newClient(options));
    comeUp();
    push(20);
    EXPECT_EQ(reactor->handle_hub_requests(500), 1);
    EXPECT_THAT(arrivedTags(1), ElementsAre(20));

    client = newClient(options);
    client.reset();
}

TEST_F(HubEventReactorTest, OnlyWrittenRequestsWithACommandAreListedAndRetriesAreNot) {
    comeUp(true);
    auto noCommand = request(18, client.get());
    noCommand->clearRequest();
    ASSERT_TRUE(reactor->pushRequest(noCommand, false));
    auto retry = request(19, client.get());
    retry->isWLRetry = true;
    ASSERT_TRUE(reactor->pushRequest(retry, false));
    push(20);
    EXPECT_EQ(reactor->handle_hub_requests(2), 2);
    EXPECT_EQ(client->getWatchlist()->size(), 0U);
    EXPECT_EQ(reactor->handle_hub_requests(500), 1);
    EXPECT_EQ(client->getWatchlist()->size(), 1U);
}

TEST_F(HubEventReactorTest, OtherThreadsPushAndLookWhileTheHubThreadWorks) {
    static constexpr int kPerThread = 200;
    comeUp();
    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    for (const int base : {1000, 2000})
        others.emplace_back([this, base] {
            for (int i = 0; i < kPerThread; ++i) {
                auto made = request(base + i, client.get());
                while (!reactor->pushRequest(made, false))
                    std::this_thread::yield();
            }
        });
    others.emplace_back([this, &done] {
        while (!done)
            EXPECT_TRUE(!client->getHubAddr().empty() && !client->isSuspended() &&
                        client->getSuspendReason().empty() && client->getReactor() == reactor.get() &&
                        !client->hasReadHandler() && !client->waitsForBoxPerms());
    });
    std::vector<int> expected{1000, 2000};
    for (int got = 0; got < 2 * kPerThread;) {
        const int sent = reactor->handle_hub_requests(50);
        for (int i = 0; i < sent; ++i) {
            const int tag = tagOf(hub.readRequest());
            EXPECT_EQ(tag, expected[tag < 2000 ? 0 : 1]++) << "each thread's requests keep their order";
        }
        got += sent;
        client->twentyFiveMsTick(0.0);
    }
    done = true;
    for (std::thread& other : others)
        other.join();
    client->closeConnection();
    EXPECT_FALSE(client->isReady());
}

} // namespace

} // namespace tivra_internal
