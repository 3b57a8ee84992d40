#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <tp/Clock.h>

#include "session/QueueDepthAlarm.h"
#include "session/RetCodeTable.h"
#include "session/SessionEventQueue.h"
#include "session/TagCounter.h"
#include "session/lifecycle/StartLatch.h"
#include "session/routing/SplitTables.h"
#include "session/sources/SourceRoutes.h"
#include "session/threads/ReactorChoice.h"
#include "support/LogCapture.h"

using namespace tivra_internal;

namespace {

// Hubs are identities here: the tables never look inside one.
HubClient* hub(int number) {
    static char identities[8];
    return reinterpret_cast<HubClient*>(&identities[number]);
}

TEST(TagCounter, WrapsOntoTheFirstUserTagAndRestartsAfterStandingRequests) {
    TagCounter tags;
    EXPECT_EQ(tags.next(), 18);
    EXPECT_EQ(tags.next(), 19);
    tags.restartAfter(std::numeric_limits<int64_t>::max() - 1);
    EXPECT_EQ(tags.next(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(tags.next(), 18);
    tags.restartAfter(500);
    EXPECT_EQ(tags.next(), 501);
    tags.restartAfter(0);
    EXPECT_EQ(tags.next(), 18);
}

TEST(RetCodeTable, HubsTextReplacesABuiltInOneAndOldPointersStayReadable) {
    RetCodeTable table;
    EXPECT_STREQ(table.get(4711), "Unknown code");
    const char* const builtIn = table.get(-5);
    EXPECT_STREQ(builtIn, "ERR.AUTH.LOGIN");
    table.set(-5, "hub says no");
    EXPECT_STREQ(table.get(-5), "hub says no");
    EXPECT_STREQ(builtIn, "ERR.AUTH.LOGIN");
    for (int i = 0; i < 20000; ++i)
        table.set(1, "text " + std::to_string(i));
    EXPECT_STREQ(table.get(-4), "ERR_DENY_LOGIN") << "a flood of texts leaves the other names alone";
}

TEST(StartLatch, IsSettledOnceAndKeepsItsReason) {
    StartLatch latch;
    std::string reason;
    latch.rearm();
    bool done = false;
    EXPECT_TRUE(latch.settle(StartLatch::Outcome::Aborted, "first"));
    EXPECT_FALSE(latch.settle(StartLatch::Outcome::Stopped, "second", [&done] { done = true; }));
    EXPECT_FALSE(done) << "what comes too late changes nothing";
    EXPECT_EQ(latch.wait(reason), StartLatch::Outcome::Aborted);
    EXPECT_EQ(reason, "first");
}

TEST(SessionEventQueue, AFloodOfSourceEventsIsCutOffAndTheStateIsKept) {
    using tivra::SessionEvent;
    static char identity;
    tp::ManualClock clock;
    LogCapture log;
    SessionEventQueue queue(reinterpret_cast<tivra::Session&>(identity));
    for (int i = 0; i < 100003; ++i)
        queue.pushSource(SessionEvent::TIVRA_SESSION_SOURCE_ADDED, 100);
    EXPECT_EQ(log.lines().size(), 1U) << "one warning in a second";
    tp::Clock::advance(1.5);
    queue.pushSource(SessionEvent::TIVRA_SESSION_SOURCE_REMOVED, 100);
    EXPECT_EQ(log.lines().size(), 2U);
    queue.pushState(SessionEvent::TIVRA_SESSION_RECOVERY);
    int kept = 0;
    SessionEvent::Types last = SessionEvent::TIVRA_SESSION_UNAVAILABLE;
    while (const SessionEventPtr event = queue.pop()) {
        ++kept;
        last = event->getType();
    }
    EXPECT_EQ(kept, 100001);
    EXPECT_EQ(last, SessionEvent::TIVRA_SESSION_RECOVERY);

    queue.push(SessionEvent::TIVRA_DIC_LOADED, std::string(100, 'v'), 0, 0);
    EXPECT_EQ(sessionEventText(*queue.pop()), "DIC_LOADED (" + std::string(37, 'v')) << "a hub's text is cut";
}

TEST(QueueDepthAlarm, HoldsForMoreThanASecondWhoeverRaisesIt) {
    static char identity;
    SessionEventQueue events(reinterpret_cast<tivra::Session&>(identity));
    QueueDepthAlarm alarm(events);
    const struct {
        bool isHub; ///< it notices a queue, or else the user thread looks
        int pct;
        double now;
        const char* event = "";
    } rows[] = {{false, 69, 100.0},
                {false, 70, 100.0, "ABOVE_THRESHOLD (70)"},
                {false, 0, 101.0},
                {false, 69, 101.1, "BELOW_THRESHOLD (69)"},
                {true, 69, 109.0},
                {true, 80, 109.1, "ABOVE_THRESHOLD (80)"},
                {false, 0, 50.0, "BELOW_THRESHOLD (0)"}};
    for (const auto& row : rows) {
        if (row.isHub)
            alarm.raise(row.pct, 70, row.now);
        else
            EXPECT_EQ(alarm.look([&] { return row.pct; }, 70, row.now), row.pct != 0 || row.now == 101.0);
        const SessionEventPtr event = events.pop();
        const std::string text = event == nullptr ? "" : sessionEventText(*event).substr(22);
        EXPECT_EQ(text, row.event) << row.pct << " at " << row.now;
    }
}

TEST(ChooseReactor, GoesRoundRobinAndGrowsOnlyAsFarAsConfigured) {
    const auto sequence = [](bool multithreaded, long maxThreads, int hubs) {
        std::string indexes;
        int last = -1;
        int reactors = 0;
        for (int i = 0; i < hubs; ++i) {
            const ReactorChoice choice = chooseReactor(last, reactors, multithreaded, maxThreads);
            reactors += choice.create ? 1 : 0;
            last = choice.index;
            indexes += std::to_string(choice.index);
        }
        return indexes + "/" + std::to_string(reactors);
    };
    EXPECT_EQ(sequence(false, 0, 3), "000/1");
    EXPECT_EQ(sequence(false, 5, 3), "000/1");
    EXPECT_EQ(sequence(true, 0, 4), "0123/4");
    EXPECT_EQ(sequence(true, 2, 5), "01010/2");
    EXPECT_EQ(sequence(true, 1, 3), "000/1");
}

TEST(SourceRoutes, FirstHubKeepsASourceAndTheUnservedOnesAreFoundInOrder) {
    SourceRoutes routes;
    routes.addBoxSource(10, hub(0));
    routes.addBoxSource(10, hub(1));
    EXPECT_EQ(routes.find(10), hub(0));
    bool had = false;
    EXPECT_EQ(routes.addUserSource(10, nullptr, had), hub(0));
    EXPECT_TRUE(had);
    for (const int source : {20, 30, 4096, 5000}) {
        EXPECT_EQ(routes.addUserSource(source, nullptr, had), nullptr);
        EXPECT_FALSE(had);
    }
    bool last = true;
    EXPECT_EQ(routes.nextWithoutHub(-1, hub(0), last), 20);
    EXPECT_FALSE(last);
    EXPECT_TRUE(routes.assign(20, hub(1)));
    EXPECT_EQ(routes.nextWithoutHub(20, hub(0), last), 30);
    EXPECT_TRUE(last);
    EXPECT_EQ(routes.find(5000), hub(0)) << "news is never asked about";
    EXPECT_EQ(routes.nextWithoutHub(30, hub(0), last), -1);
}

TEST(SourceRoutes, SourcesOfAHubThatLeavesGoToAnotherThatOffersThemOrToNobody) {
    SourceRoutes routes;
    routes.addBoxSource(10, hub(0));
    routes.addBoxSource(20, hub(0));
    routes.addBoxSource(20, hub(1));
    routes.addBoxSource(30, hub(1));
    routes.forget(hub(0));
    EXPECT_EQ(routes.find(10), nullptr);
    EXPECT_EQ(routes.find(20), hub(1));
    EXPECT_EQ(routes.find(30), hub(1));
}

TEST(SplitTables, AHubThatLeavesTakesItsPartsWithItButNotWhatAnotherOffers) {
    SplitTables tables;
    for (const int source : {100, 101})
        tables.addSplitExchange(source, hub(0));
    tables.addSplitExchange(100, hub(1));
    tables.addSplitSymbol(100, "^[A-L]", hub(0), "hub0");
    tables.addSplitSymbol(100, "^[M-Z]", hub(0), "hub0");
    tables.addSplitSymbol(101, "^A", hub(0), "hub0");
    tables.addSplitSymbol(100, '[', hub(0), 0);
    tables.addSplitSymbol(100, "^[M-Z]", hub(1), "hub1", {hub(0)});
    tables.forget(hub(0));
    EXPECT_EQ(tables.hubsOf(100), std::vector{hub(1)});
    EXPECT_FALSE(tables.isSplitSymbol(101)) << "an empty set would hold up every request for it";
    EXPECT_EQ(tables.getHubForSplitSymbol(100, "IBM"), nullptr);
    EXPECT_EQ(tables.getHubForSplitSymbol(100, "MSFT"), hub(1));
    EXPECT_EQ(tables.getHubForSplitSymbol(100, 'I'), nullptr);
    std::map<HubClient*, std::set<std::string>> patterns;
    EXPECT_FALSE(tables.patternsByHub(101, patterns));
}

TEST(SplitTables, PatternsInOrderOfTextThenTheLetterThenTheWildcardLetter) {
    SplitTables tables;
    tables.addSplitExchange(100, hub(0));
    tables.addSplitExchange(5000, hub(0));
    EXPECT_TRUE(tables.isSplitSymbol(100));
    EXPECT_FALSE(tables.isSplitSymbol(5000)) << "beyond every table";
    tables.addSplitSymbol(100, "^[A-M]", hub(0), "hub0");
    tables.addSplitSymbol(100, "^[L-Z]", hub(1), "hub1");
    tables.addSplitSymbol(100, "^[A-M]", hub(2), "hub2");
    EXPECT_EQ(tables.getHubForSplitSymbol(100, "LMT"), hub(0));
    EXPECT_EQ(tables.getHubForSplitSymbol(100, "zion"), hub(1));
    EXPECT_EQ(tables.getHubForSplitSymbol(100, "3M"), nullptr);
    tables.addSplitSymbol(100, 'M', hub(2), 1);
    tables.addSplitSymbol(100, '[', hub(1), 1);
    EXPECT_EQ(tables.skipSplitLetters(100), 1U);
    EXPECT_EQ(tables.getHubForSplitSymbol(100, 'M'), hub(2));
    EXPECT_EQ(tables.getHubForSplitSymbol(100, 'Q'), hub(1));
    EXPECT_EQ(tables.getHubForSplitSymbol(101, 'Q'), nullptr);
    // Patterns of the worst kind fill the tables long before they fill a source.
    std::string worst = "^";
    for (int i = 0; i < 512; ++i)
        worst += "A?";
    for (int i = 0; i < 20; ++i)
        tables.addSplitSymbol(200, (worst + std::to_string(i)).c_str(), hub(3), "hub3");
    std::map<HubClient*, std::set<std::string>> patterns;
    EXPECT_TRUE(tables.patternsByHub(200, patterns));
    EXPECT_EQ(patterns[hub(3)].size(), 15U);
}

} // namespace
