#include "receive/QueueReadHandler.h"

#include <utility>

#include <tp/Clock.h>

#include "ReadHandlerFixture.h"
#include "support/HeapControl.h"
#include "support/LogCapture.h"

namespace tivra_internal {
namespace {

using Lines = std::vector<std::string>;

/// The line, or none when it is empty.
Lines linesOf(const char* line) {
    return *line != '\0' ? Lines{line} : Lines{};
}

/// One message and what the application gets of it.
struct Case {
    const char* body;
    const char* expected; ///< empty: nothing
};

TEST_F(ReadHandlerTest, EveryKindOfMessageReachesTheApplicationAsWhatItIs) {
    session.commands = {{20, tivra::QUERYSNAP}, {21, tivra::SUBSCRIBE}, {22, tivra::QUERYSNAPANDSUBSCRIBE}};
    const Case cases[] = {
        {"4=100|5=IBM|8=1.5|9=100", "UPDATE IBM@100 rc=0 tag=0 [8=1.5|9=100|] {}"},
        {"4=100|5=IBM|24=1|8=1.5", "REFRESH IBM@100 rc=0 tag=0 [8=1.5|] {}"},
        {"4=100|5=IBM|8=", "UPDATE IBM@100 rc=0 tag=0 [5004=8|] {}"},
        {"5=IBM|77777=abc", "UPDATE IBM@0 rc=0 tag=0 [45028=77777|45029=abc|] {}"},
        {"5026=20|4=100|5=IBM|8=2", "IMAGE_PART IBM@100 rc=0 tag=20 [5026=20|8=2|] {}"},
        {"5026=20|5=IBM|8=2", "UPDATE IBM@0 rc=0 tag=20 [5026=20|8=2|] {}"},
        {"5026=20|24=1|8=2", "REFRESH @0 rc=0 tag=20 [5026=20|8=2|] {}"},
        {"5026=20|5001=0", "IMAGE_COMPLETE @0 rc=0 tag=20 [5026=20|5001=0|] {}"},
        {"5026=22|5001=-3|4=100", "IMAGE_COMPLETE @100 rc=-3 tag=22 [5026=22|5001=-3|] {}"},
        {"5026=21|5001=0", "STATUS @0 rc=0 tag=21 [5026=21|5001=0|] {}"},
        {"5026=999|5001=5", "STATUS @0 rc=5 tag=999 [5026=999|5001=5|] {}"},
        // Tags of the library's own requests count as no query.
        {"5026=5|5001=0|4=100", "STATUS @100 rc=0 tag=5 [5026=5|5001=0|] {}"},
        // A status nobody asked for still reaches the application.
        {"5001=7|5=IBM", "STATUS IBM@0 rc=7 tag=0 [5001=7|] {}"},
        // An empty value is no status and no tag, whatever the parser has flagged.
        {"4=100|5026=|5001=", "UPDATE @100 rc=0 tag=0 [5004=5026|5004=5001|] {}"},
        {"4=100|5026=20|5001=", "IMAGE_PART @100 rc=0 tag=20 [5026=20|5004=5001|] {}"},
        // The library's own subscriptions, even with a status.
        {"5026=12|5001=0", ""},
        {"5026=13|5001=-1", ""},
        {"5026=12|4=100|8=1", ""},
        {"5026=17|5001=0", ""},
        {"5026=17|5001=-5", ""},
        {"5026=16|5001=0", "STATUS @0 rc=0 tag=16 [5026=16|5001=0|] {}"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(receive(c.body), c.expected) << c.body;
}

TEST_F(ReadHandlerTest, RecordsOfTheSystemSourceStayInTheLibraryOthersDoNot) {
    const Case cases[] = {
        {"4=922|5=.UTC.TIME.DATE|16=1.5", ""},
        {"4=922|5=.HUB.STATUS|5065=3", ""},
        {"4=922|5=QERROR", ""},
        {"4=922|5=QERRORS", "UPDATE QERRORS@922 rc=0 tag=0 [] {}"},
        {"4=922|5=.JI", "UPDATE .JI@922 rc=0 tag=0 [] {}"},
        {"4=922|8=1", "UPDATE @922 rc=0 tag=0 [8=1|] {}"},
        {"4=100|5=QERROR", "UPDATE QERROR@100 rc=0 tag=0 [] {}"},
        {"5=.JIT|2035=1", "UPDATE .JIT@0 rc=0 tag=0 [2035=1|] {}"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(receive(c.body), c.expected) << c.body;
    EXPECT_EQ(session.jitCount, 0);
}

TEST_F(ReadHandlerTest, AHeartbeatIsNotedAndShownOnlyToASubscriber) {
    const tp::ManualClock clock;
    const char* const heartbeat = "4=922|5=.UTC.TIME.DATE|16=1.5";
    for (const char* const expected : {"", "UPDATE .UTC.TIME.DATE@922 rc=0 tag=0 [16=1.5|] {}"}) {
        session.hbSubscribed = *expected != '\0';
        EXPECT_NE(handler().getHBTime(), tp::Clock::monotonic());
        EXPECT_EQ(receive(heartbeat), expected);
        EXPECT_EQ(handler().getHBTime(), tp::Clock::monotonic());
        EXPECT_TRUE(std::exchange(hub.hbSeen, false));
        tp::Clock::advance(5);
    }
}

TEST_F(ReadHandlerTest, HubCountersAreTakenAndNonsenseCountsAsZero) {
    receive("4=922|5=.HUB.STATUS|13266=1234|5065=7");
    EXPECT_EQ(queue.statistics().getHubDroppedBytes(), 1234U);
    EXPECT_EQ(handler().getHubIdleCount(), 7U);
    receive("4=922|5=.HUB.STATUS|13266=0");
    EXPECT_EQ(queue.statistics().getHubDroppedBytes(), 1234U);
    EXPECT_EQ(handler().getHubIdleCount(), 7U);
    receive("4=922|5=.HUB.STATUS|13266=-5|5065=-1");
    EXPECT_EQ(queue.statistics().getHubDroppedBytes(), 1234U);
    EXPECT_EQ(handler().getHubIdleCount(), 0U);
}

TEST_F(ReadHandlerTest, JitRecordsCountThisHubOnce) {
    const struct {
        const char* fields;
        int count;
    } steps[] = {{"", 0},        {"|2035=0", 0}, {"|2035=", 0},  {"|2035=1", 1},
                 {"|2035=1", 1}, {"|2035=2", 1}, {"|2035=0", 0}, {"|2035=3", 1}};
    for (const auto& step : steps) {
        EXPECT_EQ(receive(std::string("4=922|5=.JIT") + step.fields), "") << step.fields;
        EXPECT_EQ(session.jitCount, step.count) << step.fields;
    }
    handler().setHubIdleCount(9);
    handler().reset();
    EXPECT_EQ(session.jitCount, 0);
    EXPECT_EQ(handler().getHubIdleCount(), 0U);
    handler().reset();
    EXPECT_EQ(session.jitCount, 0);
}

TEST_F(ReadHandlerTest, EntitlementAlertsAreSortedBySourceAndHub) {
    const struct {
        const char* fields;
        bool firstHub;
        const char* expected;
    } alerts[] = {{"|4=4095", false, "begin 4095"},
                  {"|4=4096", true, "add 4096"},
                  {"|4=4096", false, ""},
                  {"|4=1", true, "begin 1"},
                  {"|4=0", true, ""},
                  {"|4=-5", true, ""},
                  {"", true, ""},
                  {"|4=", true, ""},
                  {"|4=65535", true, "add 65535"},
                  {"|4=65536", true, ""},
                  {"|4=100|5098=1", false, "delete 100"},
                  {"|4=5000|5098=0", false, "delete 5000"}};
    for (const auto& alert : alerts) {
        session.entitlements.clear();
        session.firstHub = alert.firstHub;
        EXPECT_EQ(receive(std::string("4=922|5=.USER.ENT.ALERT") + alert.fields), "");
        EXPECT_EQ(session.entitlements, linesOf(alert.expected)) << alert.fields;
    }
}

TEST_F(ReadHandlerTest, AnAnswerToAQueryOrAListIsCountedOnce) {
    session.commands = {{20, tivra::QUERYSNAP},
                        {21, tivra::SUBSCRIBE},
                        {22, tivra::LISTAVAILABLETOKENS},
                        {5, tivra::QUERYSNAP}};
    for (int i = 0; i < 3; ++i)
        queue.incrQueryCount();
    receive("5026=20|4=100|8=1");
    receive("5026=21|5001=0");
    receive("5026=5|5001=0");
    receive("5001=0");
    EXPECT_EQ(queue.getQueryCount(), 3);
    receive("5026=20|5001=0");
    EXPECT_EQ(queue.getQueryCount(), 2);
    receive("5026=22|5001=0");
    EXPECT_EQ(queue.getQueryCount(), 1);
    std::vector<int> counted;
    for (int command = 0; command < 24; ++command) {
        session.commands[30] = static_cast<tivra::Commands>(command);
        queue.incrQueryCount();
        const auto before = queue.getQueryCount();
        receive("5026=30|5001=0");
        if (queue.getQueryCount() < before)
            counted.push_back(command);
    }
    EXPECT_EQ(counted, (std::vector<int>{2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 15, 16, 19, 22}));
}

TEST_F(ReadHandlerTest, StatusCodesAreTranslatedForSessionsThroughAManager) {
    EXPECT_EQ(receive("5026=20|5001=-220"), "STATUS @0 rc=-220 tag=20 [5026=20|5001=-220|] {}");
    session.tagAwaitingXrefHubs = 20;
    EXPECT_EQ(receive("5026=20|5001=-220"), "STATUS @0 rc=-220 tag=20 [5026=20|5001=-220|] {}");

    session.cmConnection = true;
    EXPECT_EQ(receive("5026=21|5001=-220"), "STATUS @0 rc=-12 tag=21 [5026=21|5001=-12|] {}");
    EXPECT_EQ(session.merged.back(), (std::pair<int64_t, int64_t>(21, -220))) << "merged as the hub said it";
    EXPECT_EQ(receive("5001=-220"), "STATUS @0 rc=-12 tag=0 [5001=-12|] {}");
    EXPECT_EQ(receive("5026=20|5001=0"), "STATUS @0 rc=-225 tag=20 [5026=20|5001=-225|] {}");
    EXPECT_EQ(receive("5026=21|5001=-3"), "STATUS @0 rc=-3 tag=21 [5026=21|5001=-3|] {}");
    session.merged.clear();
    receive("5026=20|5001=-220");
    EXPECT_EQ(session.merged.back(), (std::pair<int64_t, int64_t>(20, -225)));
}

TEST_F(ReadHandlerTest, TheWatchlistIsAskedBeforeMergingAndOnlyWhenInUse) {
    hub.watchlistConsumes = true;
    EXPECT_NE(receive("5026=20|5001=0"), "");
    EXPECT_TRUE(hub.watchlistCalls.empty());

    readHandler.reset();
    watchlistInUse = true;
    session.merged.clear();
    EXPECT_EQ(receive("5026=20|5001=-9"), "");
    EXPECT_EQ(hub.watchlistCalls.back(), (std::pair<int64_t, int64_t>(20, -9)));
    EXPECT_TRUE(session.merged.empty());
    hub.watchlistConsumes = false;
    EXPECT_NE(receive("5026=20|5001=-9"), "");
    EXPECT_EQ(session.merged.size(), 1U);
    // Neither sees messages that answer nothing.
    receive("5026=17|5001=0");
    receive("5026=20|4=100");
    EXPECT_EQ(hub.watchlistCalls.size(), 2U);
    EXPECT_EQ(session.merged.size(), 1U);
}

TEST_F(ReadHandlerTest, WhatMergingDecidesIsWhatTheApplicationSees) {
    session.commands = {{20, tivra::QUERYXREF}, {21, tivra::GETACTIVECLIENTSINFO}};
    session.merge = [](KVNAPI::Message&, KVNAPI::Token*, KVNAPI::TVPair*) { return true; };
    EXPECT_EQ(receive("5026=20|5001=0"), "");
    // The lowest status of all hubs is written into the last answer.
    session.merge = [](KVNAPI::Message&, KVNAPI::Token*, KVNAPI::TVPair* status) {
        status->i = -3;
        return false;
    };
    EXPECT_EQ(receive("5026=20|5001=0"), "IMAGE_COMPLETE @0 rc=-3 tag=20 [5026=20|5001=-3|] {}");
    // One list of several: its status is taken out, which moves the pairs behind it.
    session.merge = [](KVNAPI::Message& msg, KVNAPI::Token* statusTok, KVNAPI::TVPair*) {
        msg.removePair(msg.findPosition(statusTok));
        msg.isRetCodePresent = 0;
        return false;
    };
    EXPECT_EQ(receive("5026=21|5001=-1|4=100|9=1|30=x"),
              "IMAGE_PART @100 rc=0 tag=21 [5026=21|9=1|30=x|] {}");
    EXPECT_EQ(receive("5001=-1|5026=21|30=x"), "UPDATE @0 rc=0 tag=21 [5026=21|30=x|] {}");
}

TEST_F(ReadHandlerTest, AMessageWithoutAHandlerIsDroppedAndTheNextHandlerIsUsedAtOnce) {
    session.handler = nullptr;
    EXPECT_EQ(receive("4=100|5=IBM"), "");
    EXPECT_EQ(failures, 0U);
    session.handler = &application;
    EXPECT_NE(receive("4=100|5=IBM"), "");
}

TEST_F(ReadHandlerTest, ABadFrameIsCountedAndTheNextOneParses) {
    for (const char* const body : {"", "abc", "4=100|8=x", "5=a\x03z"}) {
        EXPECT_EQ(receive(body), "") << body;
        EXPECT_EQ(failures, 1U) << body;
        EXPECT_EQ(receive("4=100|5=IBM"), "UPDATE IBM@100 rc=0 tag=0 [] {}");
        EXPECT_EQ(failures, 0U);
    }
    // Bytes that are no frame at all, and a frame that isn't whole.
    std::string garbage[] = {std::string("\x04\x21\0\0\0\1x\x03", 8), std::string("\x04\x20\0\0", 4),
                             std::string("\x04\x20\xff\xff\xff\xff", 6)};
    for (std::string& bytes : garbage) {
        uint64_t delivered = 0;
        handler().process_kvn_buffer(bytes.data(), bytes.size(), &delivered);
        EXPECT_EQ(delivered, 0U);
        EXPECT_EQ(receive("4=100|5=IBM"), "UPDATE IBM@100 rc=0 tag=0 [] {}");
        EXPECT_EQ(failures, 0U) << "a bad frame costs nothing but itself";
    }
}

TEST_F(ReadHandlerTest, TheDummysMessagesKeepTheirSymbolsAsFields) {
    hub.dummy = true;
    EXPECT_EQ(receive("5026=20|4=100|13001=10.0.0.1|5={^A}|5={^B}"),
              "IMAGE_PART @100 rc=0 tag=20 [5026=20|13001=10.0.0.1|5={^A}|5={^B}|] {}");
}

TEST_F(ReadHandlerTest, ADictionaryWithoutTheTokensOfAParserCostsMessagesAndNothingElse) {
    hub.dictionary.cleanup();
    EXPECT_EQ(receive("4=100|5=IBM"), "");
    EXPECT_EQ(failures, 1U);
    hub.dictionary.loadBootStrapDic();
    EXPECT_EQ(receive("4=100|5=IBM"), "UPDATE IBM@100 rc=0 tag=0 [] {}");
}

TEST_F(ReadHandlerTest, AnEventThatWasKeptAnswersWithEmptyValuesEvenAfterAnException) {
    application.onEvent = [this](const tivra::MessageEvent&) {
        application.lines.emplace_back("seen");
        throw 1;
    };
    EXPECT_EQ(receive("4=100|5=IBM|3=7|5001=-12|8=1"), "seen");
    const tivra::MessageEvent& kept = *application.lastEvent;
    EXPECT_EQ(describe(kept), "UPDATE @0 rc=0 tag=0 [] {}");
    EXPECT_EQ(kept.getPermission(), 0);
    EXPECT_EQ(kept.getStatusString(), "");
    EXPECT_EQ(kept.isConflatable(), -1);
    EXPECT_FALSE(kept.getReader().find(8));
    EXPECT_EQ(&kept.getSession(), &session.getSession());
}

TEST_F(ReadHandlerTest, WhatGoesWrongIsLoggedAboveDebugAndNothingElseIs) {
    session.altIndexes = {{30, {index(3101, "A", tivra::QUERYSNAP)}},
                          {31, {index(77777, "A", tivra::QUERYSNAP)}},
                          {32, {index(3101, "A", tivra::ADDALTERNATEINDEX)}}};
    session.cmConnection = true;
    session.tagAwaitingXrefHubs = 33;
    const Case cases[] = {
        {"4=100|5=IBM|8=1", ""},
        {"4=922|5=.UTC.TIME.DATE", ""},
        {"4=922|5=.JIT", "WARN: 10.0.0.1:9000: Improperly formed JIT message received"},
        {"4=922|5=.JIT|2035=0", "WARN: 10.0.0.1:9000: JIT message did not change state(0); "
                                "implies previous JIT message was lost"},
        {"4=922|5=.JIT|2035=1", "INFO: 10.0.0.1:9000: JIT: this HUB has started conflating"},
        {"4=922|5=.JIT|2035=0", "INFO: 10.0.0.1:9000: JIT: this HUB has stopped conflating"},
        {"5001=0", ""},
        {"5001=-12", "WARN: rc=-12 (NOT.FOUND): no tag received"},
        {"5026=20|5001=-12", ""},
        {"5026=17|5001=0", ""},
        {"5026=17|5001=-12", "WARN: 10.0.0.1:9000: rc=-12 (NOT.FOUND) for request tag 17 (ReportApiStats)"},
        {"5026=33|5001=-3", "WARN: Change return code rc=-3 to -225 as all xref hubs are not connected for "
                            "request tag 33"},
        {"5026=30|4=100|5=IBM", "WARN: tag 30: AltIndex token 3101 not present in response"},
        {"5026=30|4=100|5=IBM|3101=B", "WARN: tag 30: 3101=A does not match returned value B "},
        {"5026=31|4=100|5=IBM", "WARN: tag 31: AltIndex token 77777 not defined in DIC"},
        {"5026=32|5001=-3", "WARN: ADDALTERNATEINDEX failed with rc=-3 for tag=32"},
    };
    handler();
    for (const Case& c : cases) {
        LogCapture log;
        receive(c.body);
        EXPECT_EQ(log.linesAboveDebug(), linesOf(c.expected)) << c.body;
    }
}

/// An application that reads every field as a number, which needs no memory.
struct SummingHandler : tivra::MessageEventHandler {
    void onMessageEvent(const tivra::MessageEvent& event) override {
        tivra::MessageReader& reader = event.getReader();
        while (reader.next() != tivra::MessageReader::END_OF_MESSAGE)
            sum += reader.getValueAsDouble();
        sum += event.getSource() + event.getType() + event.getPermission();
        ++count;
    }
    double sum = 0.0;
    int count = 0;
};

TEST_F(ReadHandlerTest, AnOrdinaryUpdateAllocatesNothing) {
    std::string body = "3=7|4=100|5=IBM";
    for (int i = 0; i < 10; ++i)
        body += "|8=123.45|9=1000|30=abc";
    std::string ordinary = frameOf(body + "|16=1381152600.25|24=1");
    std::string withIndex = frameOf("4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER|8=1.5");
    std::string heartbeat = frameOf("4=922|5=.UTC.TIME.DATE|16=1381152600.25");

    session.altIndexes[20] = {index(3101, "A", tivra::SUBSCRIBE)};
    receive("5026=20|4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER|3101=A");
    ASSERT_EQ(receive("4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER"),
              "UPDATE A.VERY.LONG.SYMBOL.OF.A.TICKER@100 rc=0 tag=0 [] {3101=A|}");

    SummingHandler summing;
    session.handler = &summing;
    uint64_t delivered = 0;
    const auto receiveAll = [&] {
        handler().process_kvn_buffer(ordinary.data(), ordinary.size(), &delivered);
        handler().process_kvn_buffer(withIndex.data(), withIndex.size(), &delivered);
        handler().process_kvn_buffer(heartbeat.data(), heartbeat.size(), &delivered);
    };
    receiveAll(); // sources and permissions are entered at first sight
    const std::size_t before = allocationsOfThisThread();
    for (int i = 0; i < 100; ++i)
        receiveAll();
    EXPECT_EQ(allocationsOfThisThread() - before, 0U);
    EXPECT_EQ(delivered, 202U);
    EXPECT_EQ(summing.count, 202);
}

} // namespace
} // namespace tivra_internal
