#include "session/routing/RequestRouter.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include "hub/HubEventReactor.h"
#include "request/HubWatchlist.h"
#include "request/RequestImpl.h"
#include "request/TagSource.h"
#include "session/HubClients.h"
#include "session/TagCounter.h"
#include "session/routing/LostRequests.h"
#include "session/routing/RequestQueue.h"
#include "session/routing/ResponseBook.h"
#include "session/routing/RouterSession.h"
#include "session/routing/SplitTables.h"
#include "session/sources/SourceRoutes.h"
#include "support/LogCapture.h"

using namespace tivra_internal;
using testing::ElementsAre;

namespace {

/// Three hubs that a reactor serves, which nobody runs: what is pushed for a hub can be counted. The first
/// one is the default hub.
class RequestRouterTest : public testing::Test, protected RouterSession, protected TagSource {
protected:
    static constexpr long kQueueOfAHub = 2;

    RequestRouterTest() {
        routes.addBoxSource(100, hubs[0]);
        routes.addBoxSource(101, hubs[1]);
        for (const int part : {1, 2})
            split.addSplitExchange(300, hubs[static_cast<std::size_t>(part)]);
        split.addSplitSymbol(300, "^[A-L]", hubs[1], "1");
        split.addSplitSymbol(300, 'Z', hubs[2], 0);
    }

    bool watchlistInUse() override { return true; }
    bool isShuttingDown() const override { return false; }
    std::string userName() const override { return "jane"; }
    HubClient* firstHub() const override { return hubs[0]; }
    std::vector<HubClient*> hubsForAll() const override { return hubs.all(); }
    HubEventReactor* reactorOf(HubClient* hub) override { return hub == unserved ? nullptr : &reactor; }
    XrefStanding xrefStanding() const override { return xref; }
    void connectXrefHubsFor(const RequestInternal&) override {}
    bool waitsForXrefHubs(std::unique_ptr<RequestInternal>&) override { return false; }
    void noteSentWithoutXrefHubs(int64_t) override { ++withoutXrefHubs; }
    void enterPortDetailsRequest(std::unique_ptr<RequestInternal>&) override { FAIL(); }
    void storeConflationInterval(long) override { FAIL(); }
    void sendPortQuestion(std::unique_ptr<RequestInternal>&, int source) override { askedAgain = source; }
    int64_t getNextTag() override { return tags.next(); }

    std::int64_t send(tivra::Commands command, int source = -1, const std::string& symbol = "IBM") {
        RequestImpl builder;
        builder.setCommand(command);
        if (source >= 0)
            builder.add(4, source);
        if (!symbol.empty())
            builder.add(5, symbol);
        const std::int64_t tag = queue.accept(builder, {true, maxQueue, 100});
        queue.serve(100, router);
        return tag;
    }
    /// How many requests each hub has got since the last time.
    std::vector<std::size_t> got() {
        std::vector<std::size_t> counts;
        for (HubClient* hub : hubs.all())
            counts.push_back(reactor.takeRequestsOf(hub).size());
        return counts;
    }
    /// The hubs whose answers to the tag are awaited.
    std::string awaited(std::int64_t tag) {
        std::string awaited;
        for (std::size_t i = 0; i < 3; ++i)
            if (const auto answer = responses.answer(tag, hubs[i], 0, 2); answer && answer->isAwaited)
                awaited += std::to_string(i) + (answer->isLast ? "!" : "");
        return awaited;
    }

    tp::ManualClock clock;
    HubClients hubs{3};
    HubEventReactor reactor{0, kQueueOfAHub};
    HubClient* unserved = nullptr;
    XrefStanding xref;
    int withoutXrefHubs = 0;
    int askedAgain = 0;
    std::size_t maxQueue = 100;
    TagCounter tags;
    SourceRoutes routes;
    SplitTables split;
    Watchlist watchlist;
    ResponseBook responses;
    LostRequests lost;
    RequestQueue queue{watchlist, responses, *this};
    RequestRouter router{*this, {routes, split, watchlist, responses, lost, queue}};
};

TEST_F(RequestRouterTest, EveryRequestReachesTheHubsThatItIsForAndTheirAnswersAreAwaited) {
    const XrefStanding noManager, missing{true, true, false};
    const struct {
        int line;
        tivra::Commands command;
        int source;
        const char* symbol;
        XrefStanding xref;
        const char* hubs;
    } rows[] = {{__LINE__, tivra::QUERYSNAP, 101, "IBM", noManager, "1!"},
                {__LINE__, tivra::QUERYSNAP, 102, "IBM", noManager, "0!"},
                {__LINE__, tivra::QUERYSNAP, 300, "BAC", noManager, "1!"},
                {__LINE__, tivra::QUERYSNAP, 300, "ZION", noManager, "2!"},
                {__LINE__, tivra::QUERYSNAP, 300, "9", noManager, "0!"},
                {__LINE__, tivra::QUERYWILDCARD, 300, "*", noManager, "12!"},
                {__LINE__, tivra::QUERYXREF, -1, "IBM", noManager, "012!"},
                {__LINE__, tivra::QUERYXREF, -1, "IBM", missing, "0!"},
                {__LINE__, tivra::LISTENUMERATION, -1, "", noManager, "0!"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "line " << row.line);
        xref = row.xref;
        const std::string awaits = awaited(send(row.command, row.source, row.symbol));
        EXPECT_EQ(awaits, row.hubs);
        const std::vector<std::size_t> counts = got();
        for (std::size_t i = 0; i < counts.size(); ++i)
            EXPECT_EQ(counts.at(i), awaits.find(static_cast<char>('0' + i)) != std::string::npos ? 1U : 0U)
                << i;
    }
    EXPECT_EQ(withoutXrefHubs, 1);
}

TEST_F(RequestRouterTest, AFullHubHoldsUpItsOwnRequestsAndAQuestionToAllGoesOnWithoutIt) {
    for (long i = 0; i < kQueueOfAHub + 1; ++i)
        send(tivra::QUERYSNAP, 101);
    send(tivra::QUERYSNAP, 100);
    EXPECT_EQ(awaited(send(tivra::QUERYXREF)), "02!");
    const std::int64_t standing = send(tivra::SUBSCRIBEWILDCARD, -1, "*");
    EXPECT_THAT(got(), ElementsAre(2, 2, 2));
    send(tivra::QUERYSNAP, 101);
    EXPECT_THAT(got(), ElementsAre(0, 0, 0)) << "what is held goes first";
    tp::Clock::advance(1.1);
    queue.serve(100, router);
    EXPECT_THAT(got(), ElementsAre(1, 2, 0));
    tp::Clock::advance(1.1);
    queue.serve(100, router);
    EXPECT_THAT(got(), ElementsAre(0, 1, 0)) << "the last of four";
    EXPECT_EQ(awaited(standing), "012!");
}

TEST_F(RequestRouterTest, WhatAHubThatLeavesHasNotGotIsRoutedAgainUnlessOthersHaveCopies) {
    const std::int64_t single = send(tivra::QUERYSNAP, 101);
    const std::int64_t several = send(tivra::QUERYXREF);
    routes.forget(hubs[1]);
    unserved = hubs[1];
    for (auto& request : reactor.takeRequestsOf(unserved))
        router.takeBackRequest(std::move(request), unserved);
    queue.serve(100, router);
    EXPECT_THAT(got(), ElementsAre(2, 0, 1)) << "nobody else carries the source";
    EXPECT_EQ(awaited(single), "0!");
    EXPECT_EQ(awaited(several), "02!");
    EXPECT_EQ(askedAgain, 0);
}

TEST_F(RequestRouterTest, AFullQueueOrListRefusesAllButAnUnsubscribe) {
    EXPECT_NE(send(tivra::SUBSCRIBE, 100), 0);
    LogCapture log;
    RequestImpl builder;
    for (const auto& [command, isTaken] :
         {std::pair(tivra::SUBSCRIBE, false), std::pair(tivra::UNSUBSCRIBE, true)}) {
        builder.setCommand(command);
        EXPECT_EQ(queue.accept(builder, {true, 100, 1}) != 0, isTaken);
        EXPECT_EQ(queue.accept(builder, {true, 0, 100}), 0);
    }
    const std::string line = "WARN: send() failed for tag 0: ";
    EXPECT_THAT(log.lines(),
                testing::IsSupersetOf({line + "watchlist is full", line + "requestQueue is full"}));
}

} // namespace
