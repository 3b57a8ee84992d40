// The pump of a hub thread: order, budget, refusals, replays.
#include <atomic>
#include <functional>
#include <thread>

#include "hub/HubFixture.h"
#include "request/HubWatchlist.h"
#include "request/RequestImpl.h"

namespace tivra_internal {
namespace {

using testing::ElementsAre;

class HubEventReactorTest : public HubFixture {
protected:
    static std::unique_ptr<RequestInternal> request(int64_t tag, HubClient* to,
                                                    const std::string& symbol = "IBM",
                                                    tivra::Commands command = tivra::SUBSCRIBE) {
        RequestImpl builder;
        builder.setCommand(command);
        builder.add(4, 558);
        builder.add(5, symbol.substr(0, 200));
        for (std::size_t done = 200; done < symbol.size(); done += 200)
            builder.add(3131, symbol.substr(done, 200));
        auto made = std::make_unique<RequestInternal>(&builder);
        made->setTag(tag);
        made->setHUB(to);
        return made;
    }
    void push(std::unique_ptr<RequestInternal> made) {
        ASSERT_TRUE(reactor->pushRequest(made, false));
        EXPECT_EQ(made, nullptr);
    }
    void push(int64_t tag, const std::string& symbol = "IBM", tivra::Commands command = tivra::SUBSCRIBE) {
        push(request(tag, client.get(), symbol, command));
    }
    /// A client with a watchlist, once made, or again.
    void comeUp(bool watchlist = false) {
        if (client == nullptr)
            makeClient({.watchlist = watchlist});
        HubFixture::comeUp();
    }
    std::unique_ptr<HubClient> anotherClient() { return newClient({.index = 1}); }
    /// One pass of the pump writes these tags and nothing else.
    void expectPass(std::vector<int> tags, unsigned budget = 500) {
        EXPECT_EQ(reactor->handle_hub_requests(budget), static_cast<int>(tags.size()));
        EXPECT_EQ(arrivedTags(tags.size()), tags);
    }
    /// The tags of the next requests; none may follow them.
    std::vector<int> arrivedTags(std::size_t count) {
        std::vector<int> tags;
        for (std::size_t i = 0; i < count; ++i)
            tags.push_back(tagOf(hub.readRequest()));
        EXPECT_FALSE(hub.hasRequest());
        return tags;
    }
    static int tagOf(const std::string& text) {
        const std::size_t at = text.rfind("5026=", 0) == 0 ? 0 : text.find("|5026=") + 1;
        return std::stoi(text.substr(at + 5));
    }
};

TEST_F(HubEventReactorTest, NothingGoesOutBeforeTheHubIsReady) {
    makeClient();
    connectAndLogin();
    hub.readRequest();
    push(18);
    expectPass({});
}

TEST_F(HubEventReactorTest, TheFullQueueOfOneHubRefusesUnlessForcedAndLeavesTheRequestWithItsOwner) {
    makeClient();
    const std::unique_ptr<HubClient> other = anotherClient();
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
    auto others = request(21, other.get());
    EXPECT_TRUE(small.pushRequest(others, false));
}

TEST_F(HubEventReactorTest, WhatIsForAHubThatIsAwayWaitsThereAndOneThatIsGivenUpGivesItBack) {
    comeUp();
    struct Row {
        std::function<void(HubClient&)> happens;
        std::size_t givenBack;
    };
    const Row table[] = {
        {[](HubClient&) {}, 0},
        {[](HubClient& which) { which.suspendClient("refused"); }, 0},
        {[](HubClient& which) { which.setQueryXRefHUB(true), which.life().giveUp(); }, 1},
        {[](HubClient& which) { which.life().retire(); }, 1},
    };
    for (const Row& row : table) {
        session.takenBack.clear();
        const std::unique_ptr<HubClient> away = anotherClient();
        push(request(18, away.get()));
        push(19);
        row.happens(*away);
        expectPass({19});
        EXPECT_EQ(session.takenBack.size(), row.givenBack);
        EXPECT_EQ(reactor->takeRequestsOf(away.get()).size(), 1 - row.givenBack);
    }
}

TEST_F(HubEventReactorTest, HubsTakeTurnsAndOneThatTakesNothingHoldsUpItsOwn) {
    comeUp();
    HubPeer firstPeer;
    const std::unique_ptr<HubClient> first = newClient({.port = firstPeer.port(), .index = 1});
    ASSERT_TRUE(dial(*first));
    firstPeer.accept();
    EXPECT_TRUE(first->markReady());
    for (int tag = 18; tag < 22; ++tag) {
        push(request(tag, first.get()));
        push(tag + 100);
    }
    EXPECT_EQ(reactor->handle_hub_requests(5), 5);
    EXPECT_EQ(reactor->handle_hub_requests(1), 1);
    EXPECT_THAT(arrivedTags(3), ElementsAre(118, 119, 120));
    EXPECT_EQ(reactor->handle_hub_requests(500), 2);
    EXPECT_THAT(arrivedTags(1), ElementsAre(121));

    session.stopping = true; // a frame once begun is given up at the first look
    for (int tag = 22; tag < 1022; ++tag)
        push(request(tag, first.get(), std::string(7000, 's')));
    int sent = 0;
    while (const int now = reactor->handle_hub_requests(500))
        sent += now;
    EXPECT_LT(sent, 1000) << "a peer that reads nothing can't have got them all";
    EXPECT_EQ(session.down, first->getFd() < 0 ? 1 : 0);
    push(122);
    EXPECT_GE(reactor->handle_hub_requests(500), 1) << "the system may have made space for more to the first";
    EXPECT_THAT(arrivedTags(1), ElementsAre(122));
}

TEST_F(HubEventReactorTest, TheRequestsOfAHubThatLeavesAreGivenBackAndTheOthersKeepTheirOrder) {
    comeUp();
    const std::unique_ptr<HubClient> leaving = anotherClient();
    push(18);
    push(request(19, leaving.get()));
    push(20);
    push(request(21, leaving.get()));
    const auto taken = reactor->takeRequestsOf(leaving.get());
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken.front()->getTag(), 19);
    EXPECT_EQ(taken.back()->getTag(), 21);
    expectPass({18, 20});
}

TEST_F(HubEventReactorTest, ARetryThatIsSetAsideDoesNotStandInTheWayOfTheNext) {
    constexpr int64_t kBusy = -218;
    session.takesRequests = true;
    comeUp(true);
    push(18);
    expectPass({18});
    EXPECT_TRUE(client->handleWatchlistResponse(18, kBusy));
    ASSERT_EQ(session.takenBack.size(), 1U) << "the retry";
    EXPECT_TRUE(client->handleWatchlistResponse(18, kBusy));
    EXPECT_EQ(session.takenBack.size(), 1U) << "one at a time";
    push(std::move(session.takenBack.front()));
    client->suspendClient("no use");
    expectPass({});
    session.takenBack.clear();

    comeUp();
    expectPass({18});
    EXPECT_TRUE(client->handleWatchlistResponse(18, kBusy));
    EXPECT_EQ(session.takenBack.size(), 1U) << "the replay met a busy hub and is tried again";
}

TEST_F(HubEventReactorTest, ARetryIsNotWrittenOnceItWasOvertakenByAnUnsubscribeOrAReplay) {
    constexpr int64_t kBusy = -218;
    session.takesRequests = true;
    comeUp(true);
    push(18);
    push(19, "BAC");
    expectPass({18, 19});
    for (const int64_t tag : {18, 19})
        EXPECT_TRUE(client->handleWatchlistResponse(tag, kBusy));
    ASSERT_EQ(session.takenBack.size(), 2U) << "the retries";
    EXPECT_FALSE(client->getWatchlist()->handleResponse(18, -3));
    client->closeConnection();
    for (auto& retry : session.takenBack)
        push(std::move(retry));
    comeUp();
    expectPass({19});
    expectPass({});
}

TEST_F(HubEventReactorTest, ATextThatFitsNoFrameIsDroppedAndTheNextGoesOut) {
    comeUp();
    push(18, std::string(9000, 's'));
    push(19);
    expectPass({19});
    EXPECT_GE(client->getFd(), 0);
    EXPECT_EQ(session.told.back(), "lost 18") << "its answer is awaited no more";
}

TEST_F(HubEventReactorTest, QueriesAreCountedAndRenewedSubscriptionsFollowTheirRequestAndItsReplay) {
    comeUp(true);
    push(18, "IBM", tivra::QUERYSNAP);
    auto both = request(19, client.get(), "B");
    both->resubHB = both->resubHubStatus = true;
    push(std::move(both));
    push(20, "C");
    EXPECT_EQ(reactor->handle_hub_requests(500), 3);
    EXPECT_THAT(arrivedTags(5), ElementsAre(18, 19, 12, 13, 20));
    EXPECT_EQ(client->getResponseQueue()->getQueryCount(), 1);
    client->closeConnection();
    comeUp();
    EXPECT_EQ(reactor->handle_hub_requests(500), 3);
    EXPECT_THAT(arrivedTags(5), ElementsAre(18, 19, 12, 13, 20));
}

TEST_F(HubEventReactorTest, ReplayGoesByTagBeforeTheQueueAndIsDoneInTheSameTick) {
    comeUp(true);
    push(19, "B");
    push(18, "A");
    push(20, "C");
    expectPass({19, 18, 20});
    client->closeConnection();
    push(21, "D");
    expectPass({});
    comeUp();
    session.told.clear();
    expectPass({18, 19}, 2);
    expectPass({20, 21});
    EXPECT_THAT(session.told, ElementsAre("replay 18", "replay 19", "replay 20"));
}

TEST_F(HubEventReactorTest, AClientThatClosesDuringAReplayHoldsNobodyBack) {
    comeUp(true);
    push(18, "A");
    push(19, "B");
    expectPass({18, 19});
    client->closeConnection();
    comeUp();
    expectPass({18}, 1);
    client->closeConnection();

    const std::unique_ptr<HubClient> other = std::exchange(client, anotherClient());
    comeUp();
    push(20);
    expectPass({20});
}

TEST_F(HubEventReactorTest, OnlyWrittenRequestsWithACommandAreListed) {
    comeUp(true);
    auto noCommand = request(18, client.get());
    noCommand->clearRequest();
    push(std::move(noCommand));
    push(19);
    EXPECT_EQ(reactor->handle_hub_requests(1), 1);
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
            for (int i = 0; i < kPerThread; ++i)
                push(base + i);
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
