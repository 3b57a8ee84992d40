// Requests and what comes back for them.
#include "Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;
using tivra::MessageEvent;
using tivra_sim::Hub;
using tivra_sim::Record;
namespace token = tivra_sim::token;
namespace status = tivra_sim::status;

namespace {

class RequestTest : public testing::Test {
protected:
    void start() { ASSERT_TRUE(client.startAndWait()); }
    void startWithWatchlist() {
        client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
        start();
    }
    /// The last request of a command as the hub got it.
    std::string lastSent(std::string_view command) {
        std::string text;
        EXPECT_TRUE(hub.waitForCommand(command));
        for (const tivra_sim::Request& request : hub.requests()) {
            if (request.command == command)
                text = request.text;
        }
        return text;
    }

    StartedHub hub;
    Client client{hub};
};

struct Asked {
    tivra::Commands command;
    int source;
    const char* symbol;
    int status;
    MessageEvent::Types end;
    std::size_t parts; ///< messages ahead of the end
    std::vector<Client::Field> more = {};
};

TEST_F(RequestTest, EveryCommandGetsItsAnswer) {
    constexpr MessageEvent::Types end = MessageEvent::STATUS;
    const Asked table[] = {
        {tivra::QUERYSNAP, 100, "IBM", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYSNAP, 100, "NOSUCH", status::UNKNOWN_SYMBOL, MessageEvent::IMAGE_COMPLETE, 0},
        {tivra::QUERYSNAP, 0, "SPY", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYWILDCARD, 101, "IBM*", 0, MessageEvent::IMAGE_COMPLETE, 2},
        {tivra::QUERYWILDCARD, 101, "ZZZ*", status::UNKNOWN_SYMBOL, MessageEvent::IMAGE_COMPLETE, 0},
        {tivra::QUERYDEPTH, 101, "AIG131221C49", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYXREF, 100, "IBM", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYSNAPANDSUBSCRIBE, 100, "AIG", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYDEPTHANDSUBSCRIBE, 101, "IBM131221P185", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, 101, "AIG*", 0, MessageEvent::IMAGE_COMPLETE, 1},
        {tivra::SUBSCRIBE, 100, "IBM", 0, MessageEvent::STATUS, 0},
        {tivra::SUBSCRIBE, 100, "NOSUCH", status::UNKNOWN_SYMBOL, MessageEvent::STATUS, 0},
        {tivra::SUBSCRIBE, 102, "ESZ3", status::NO_PERMISSION, MessageEvent::STATUS, 0},
        {tivra::SUBSCRIBE, 0, "", status::UNKNOWN_SYMBOL, MessageEvent::STATUS, 0},
        {tivra::SUBSCRIBEWILDCARD, 101, "*", 0, MessageEvent::STATUS, 0},
        {tivra::UNSUBSCRIBEWILDCARD, 101, "*", 0, MessageEvent::STATUS, 0},
        {tivra::LISTSUBSCRIBEDSYMBOLS, 0, "", 0, MessageEvent::IMAGE_COMPLETE, 4},
        {tivra::UNSUBSCRIBE, 100, "IBM", 0, MessageEvent::STATUS, 0},
        {tivra::UNSUBSCRIBE, 100, "IBM", status::UNKNOWN_SUBSCRIPTION, MessageEvent::STATUS, 0},
        {tivra::LISTENUMERATION, 0, "", 0, MessageEvent::STATUS, 19, {{5035, "5001"}}},
        {tivra::LISTAVAILABLETOKENS, 0, "", 0, MessageEvent::STATUS, 214},
        {tivra::LISTEXTENDEDEXCHANGEINFO, 0, "", 0, MessageEvent::STATUS, 0},
        {tivra::GETACTIVECLIENTSINFO, 0, "", 0, MessageEvent::STATUS, 0},
        {tivra::GETALLUSERS, 0, "", 0, MessageEvent::STATUS, 0},
        {tivra::SELECTUSERFILTERTOKENS, 0, "", status::UNKNOWN_TOKEN, end, 0, {{5035, "1999"}}},
        {tivra::SETCONFLATIONINTERVAL, 0, "", status::BAD_PARAMETER, MessageEvent::STATUS, 0, {{2029, "-5"}}},
        {tivra::SETL2CONFLATIONINTERVAL, 0, "", status::BAD_PARAMETER, MessageEvent::STATUS, 0},
        {tivra::GETSOURCEPORTDETAILS, 0, "", 0, MessageEvent::IMAGE_COMPLETE, 3}, // news sources are left out
    };
    start();
    for (const Asked& row : table) {
        SCOPED_TRACE(testing::Message()
                     << "command " << row.command << ' ' << row.source << ' ' << row.symbol);
        const std::int64_t tag = client.send(row.command, row.source, row.symbol, row.more);
        ASSERT_TRUE(client.waitForEnd(tag));
        const std::vector<SeenMessage> answer = client.messagesOf(tag);
        EXPECT_EQ(answer.back().status, row.status);
        EXPECT_EQ(answer.back().type, row.end);
        EXPECT_EQ(answer.size() - 1, row.parts);
        EXPECT_NE(answer.back().statusText, "Unknown code");
        for (std::size_t i = 0; i + 1 < answer.size(); ++i)
            EXPECT_EQ(answer[i].status, 0);
    }
    EXPECT_THAT(client.log(), HasSubstr("Full subscribe not supported by API"));
}

TEST_F(RequestTest, SourcePortDetailsNameTheHubOfEachSource) {
    start();
    const std::int64_t tag = client.send(tivra::GETSOURCEPORTDETAILS);
    ASSERT_TRUE(client.waitForEnd(tag));
    const std::vector<SeenMessage> answer = client.messagesOf(tag);
    ASSERT_THAT(answer, SizeIs(4)) << "news sources are left out";
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(answer[i].type, MessageEvent::IMAGE_PART);
        EXPECT_EQ(answer[i].source, std::vector<int>({100, 101, 922})[i]);
        EXPECT_THAT(answer[i].field(token::HOST), testing::StartsWith("127.0.0.1"));
        EXPECT_EQ(answer[i].field(token::PORT), std::to_string(hub.port()));
    }
    for (const tivra_sim::Request& request : hub.requests())
        EXPECT_NE(request.tag, tag) << "the library answers by itself";

    const std::int64_t next = client.send(tivra::GETSOURCEPORTDETAILS);
    for (int more = 0; more < 500; ++more)
        client.send(tivra::GETSOURCEPORTDETAILS);
    ASSERT_TRUE(client.waitForEnd(next));
    client.session().stop(); // one is answered in a millisecond, so many are left
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    const std::int64_t fresh = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(fresh));
    EXPECT_THAT(client.messages(), Each(testing::Field(&SeenMessage::tag, fresh))) << "a stop ends them all";
}

TEST_F(RequestTest, SnapshotHoldsEveryFieldOfTheHub) {
    start();
    const std::int64_t tag = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(tag));
    const SeenMessage part = client.messagesOf(tag).front();
    EXPECT_EQ(part.type, MessageEvent::IMAGE_PART);
    EXPECT_EQ(part.symbol, "IBM");
    EXPECT_EQ(part.source, 100);
    EXPECT_EQ(part.permission, 100);
    EXPECT_EQ(part.status, 0);
    for (const auto& [number, text] : hub.config().symbols[2].fields)
        EXPECT_THAT(part.fields, Contains(Pair(number, testing::AnyOf(text, "184.1")))) << number;
    EXPECT_EQ(lastSent("QuerySnap"), "5022=QuerySnap|4=100|5=IBM|5026=" + std::to_string(tag));
}

TEST_F(RequestTest, UpdatesComeWhileSubscribedAndRefreshesAreTold) {
    start();
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    EXPECT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "185.25").add(token::BID_SIZE, 7)), 1U);
    EXPECT_EQ(hub.pushRecord(Record(100, "BAC").add(token::BID, "14.5")), 0U);
    ASSERT_TRUE(client.waitForUpdates(1));
    const SeenMessage update = client.messages().back();
    EXPECT_EQ(update.symbol, "IBM");
    EXPECT_EQ(update.tag, 0);
    EXPECT_EQ(update.field(token::BID), "185.25");
    EXPECT_EQ(update.field(token::BID_SIZE), "7");
    EXPECT_EQ(update.conflatable, -1);
    EXPECT_EQ(hub.pushRefresh(100, "IBM"), 1U);
    EXPECT_TRUE(client.waitForMessage([](const SeenMessage& message) {
        return message.type == MessageEvent::REFRESH && message.field(token::BID) == "185.25";
    }));
    EXPECT_EQ(client.ask(tivra::UNSUBSCRIBE, 100, "IBM"), 0);
    EXPECT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "186")), 0U);
}

TEST_F(RequestTest, ConflationIndicatorTellsWhatMayBeConflated) {
    client.connections().set(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, true);
    start();
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    hub.pushRecord(Record(100, "IBM").add(token::BID, "1"));
    hub.pushRecord(Record(100, "IBM").add(token::CONFLATE_INDICATOR, 0).add(token::BID, "2"));
    ASSERT_TRUE(client.waitForUpdates(2));
    const std::vector<SeenMessage> seen = client.messages();
    EXPECT_EQ(seen[seen.size() - 2].conflatable, 1);
    EXPECT_EQ(seen.back().conflatable, 0);
}

TEST_F(RequestTest, AlternateIdentifierTravelsFromSubscriptionToDelivery) {
    start();
    const std::int64_t tag = client.send(tivra::SUBSCRIBE, 100, "", {{tivra::CUSIP, "459200101"}});
    ASSERT_TRUE(client.waitForEnd(tag));
    EXPECT_EQ(lastSent("QuerySnapAndSubscribe"),
              "5022=QuerySnapAndSubscribe|4=100|3123=459200101|5026=" + std::to_string(tag));
    EXPECT_THAT(client.messagesOf(tag), SizeIs(1)) << "the image that the library asked for stays hidden";
    hub.pushRecord(Record(100, "IBM").add(token::BID, "1").add(token::CUSIP, "459200101"));
    ASSERT_TRUE(client.waitForUpdates(1));
    SeenMessage seen = client.messages().back();
    EXPECT_THAT(seen.alternates, ElementsAre(Pair(token::CUSIP, "459200101")));
    EXPECT_EQ(seen.field(token::CUSIP), "") << "it stands among the alternate identifiers only";

    EXPECT_EQ(client.ask(tivra::UNSUBSCRIBE, 100, "", {{tivra::CUSIP, "459200101"}}), 0);
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    client.forget();
    hub.pushRecord(Record(100, "IBM").add(token::BID, "2"));
    ASSERT_TRUE(client.waitForUpdates(1));
    EXPECT_TRUE(client.messages().back().alternates.empty());

    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "", {{tivra::ISIN, "US0605051046"}});
    ASSERT_TRUE(client.waitForEnd(snap));
    seen = client.messagesOf(snap).front();
    EXPECT_EQ(seen.symbol, "BAC");
    EXPECT_THAT(seen.alternates, ElementsAre(Pair(token::ISIN, "US0605051046")));
}

TEST_F(RequestTest, AlternateIdentifiersOfAWholeSource) {
    start();
    EXPECT_EQ(client.ask(tivra::ADDALTERNATEINDEX, 100, "", {{tivra::KVN_TOKEN_NUM, "3126"}}), 0);
    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(snap));
    const SeenMessage part = client.messagesOf(snap).front();
    EXPECT_THAT(part.alternates, ElementsAre(Pair(token::SEDOL, "2005973")));
    EXPECT_EQ(part.field(token::SEDOL), "");
}

TEST_F(RequestTest, SystemSourceReachesTheApplicationOnlyWhenItAsked) {
    start();
    hub.pushHeartbeat();
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 922, ".UTC.TIME.DATE"), 0);
    ASSERT_TRUE(client.waitForUpdates(1));
    for (const SeenMessage& message : client.messages())
        EXPECT_TRUE(message.source != 922 || message.symbol == ".UTC.TIME.DATE");
    client.session().stop();
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    hub.pushHeartbeat();
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    for (const SeenMessage& message : client.messages())
        EXPECT_NE(message.source, 922) << "a stop ends the application's subscription";
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 922, ".UTC.TIME.DATE"), 0);
    hub.clearRequests();
    EXPECT_EQ(client.ask(tivra::UNSUBSCRIBE, 922, ".UTC.TIME.DATE"), 0);
    ASSERT_TRUE(hub.waitForRequests(2)) << "the library takes its own heartbeat up again";
    EXPECT_EQ(hub.requestTexts().back(), "5026=12|5022=Subscribe|4=922|5=.UTC.TIME.DATE");
    client.forget();
    hub.pushHeartbeat();
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    for (const SeenMessage& message : client.messages())
        EXPECT_NE(message.source, 922);
}

TEST_F(RequestTest, TooLongAndTooMany) {
    const std::string longest(4000, 'x');
    std::vector<Client::Field> fields{{tivra::USER_NAME, longest}, {tivra::USER_NAME, longest}};
    EXPECT_GE(client.send(tivra::GETALLUSERS, 0, "", fields), 18);
    fields.push_back(fields.front());
    EXPECT_EQ(client.send(tivra::GETALLUSERS, 0, "", fields), 0);
    EXPECT_THAT(client.log(), HasSubstr("request is too long"));
    EXPECT_EQ(client.send(tivra::QUERYSNAP, 100, "IBM|5022=UnsubscribeWildCard"), 0);
    EXPECT_THAT(client.log(), HasSubstr("a value of the request was refused"));

    tivra::Request& request = client.session().createRequest();
    request.setCommand(tivra::QUERYSNAP);
    request.add(tivra::ENUM_SRC_ID, 100).add(tivra::SYMBOL_TICKER, std::string("IBM"));
    std::int64_t last = 0;
    for (int sent = 1; sent < 100000; ++sent)
        last = client.session().send(request);
    EXPECT_GE(last, 18);
    const std::int64_t reserved = request.generateTag();
    EXPECT_EQ(client.session().send(request), 0) << "the queue holds a hundred thousand";
    EXPECT_THAT(client.log(),
                HasSubstr("send() failed for tag " + std::to_string(reserved) + ": requestQueue is full"));
    client.session().freeRequest(request);
}

TEST_F(RequestTest, TheLongestThatSendTakesReachesTheHubAndSoDoesItsUnsubscribe) {
    const auto sendLongest = [this](tivra::Commands command, int source, const std::string& symbol) {
        std::int64_t tag = 0;
        for (std::size_t rest = 200; tag == 0 && rest > 0; --rest)
            tag = client.send(command, source, symbol,
                              {{tivra::DEPTH_TYPE, std::string(4000, 'x')},
                               {tivra::KVN_FILTER_ID, std::string(4000, 'x')},
                               {tivra::CONFLATION, std::string(rest, 'x')}});
        EXPECT_TRUE(client.waitForEnd(tag)) << command << symbol;
        return std::to_string(tag);
    };
    start();
    sendLongest(tivra::UNSUBSCRIBE, 0, "");
    client.session().stop();
    client.forget();
    startWithWatchlist();
    sendLongest(tivra::SUBSCRIBE, 0, "");
    for (const tivra::Commands command : {tivra::SUBSCRIBE, tivra::SUBSCRIBEWILDCARD})
        EXPECT_EQ(
            client.ask(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, sendLongest(command, 100, "IBM")}}),
            0);
}

TEST_F(RequestTest, WatchlistReplaysWhatStandsAfterALoss) {
    startWithWatchlist();
    const std::int64_t ibm = client.send(tivra::SUBSCRIBE, 100, "IBM");
    const std::int64_t bac = client.send(tivra::SUBSCRIBE, 100, "BAC");
    const std::int64_t bad = client.send(tivra::SUBSCRIBE, 100, "NOSUCH");
    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "SPY");
    for (const std::int64_t tag : {ibm, bac, bad, snap})
        ASSERT_TRUE(client.waitForEnd(tag));
    const std::int64_t end =
        client.send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(bac)}});
    ASSERT_TRUE(client.waitForEnd(end));
    EXPECT_EQ(client.messagesOf(end).back().status, 0);
    EXPECT_EQ(lastSent("Unsubscribe"), "5022=Unsubscribe|4=100|5=BAC|5026=" + std::to_string(end));
    const std::int64_t unknown = client.send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, "99999"}});
    ASSERT_TRUE(client.waitForEnd(unknown));
    EXPECT_EQ(client.messagesOf(unknown).back().status, status::UNKNOWN_SYMBOL);
    EXPECT_EQ(client.ask(tivra::SETCONFLATIONINTERVAL, 0, "", {{tivra::CONFLATION_INTERVAL, "500"}}), 0);

    const std::int64_t isin = client.send(tivra::SUBSCRIBE, 100, "", {{tivra::ISIN, "US0605051046"}});
    ASSERT_TRUE(client.waitForEnd(isin));

    hub.clearRequests();
    client.forget();
    hub.dropConnections(Hub::Close::Reset);
    ASSERT_TRUE(client.waitForEnd(ibm)) << "only what still stands is asked for again, under its old tag";
    ASSERT_TRUE(client.waitForEnd(isin));
    EXPECT_THAT(client.messagesOf(isin), SizeIs(1)) << "the image stays hidden in a replay too";
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    std::vector<std::string> replayed;
    for (const tivra_sim::Request& request : hub.requests()) {
        if (request.tag >= 18)
            replayed.push_back(request.text);
    }
    EXPECT_THAT(replayed, ElementsAre("5022=Subscribe|4=100|5=IBM|5026=" + std::to_string(ibm),
                                      "5022=QuerySnapAndSubscribe|4=100|3125=US0605051046|5026=" +
                                          std::to_string(isin)));
    EXPECT_THAT(lastSent("SetConflationInterval"), HasSubstr("|2029=500")) << "so is the last interval";
    EXPECT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "3")), 1U);
    EXPECT_TRUE(client.waitForUpdates(1));

    client.session().stop();
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_TRUE(hub.waitForSubscriptions(1)) << "and after a restart";
    EXPECT_EQ(client.send(tivra::QUERYSNAP, 100, "SPY"), isin + 1) << "whose tags start behind it";
}

TEST_F(RequestTest, EachOfEqualRequestsInFlightIsRepeatedAfterALossAndOnlyTheNewestStands) {
    startWithWatchlist();
    hub.clearRequests();
    hub.ignore(Hub::ANY_COMMAND);
    std::vector<std::int64_t> tags;
    for (const tivra::Commands command : {tivra::QUERYSNAP, tivra::QUERYSNAPANDSUBSCRIBE})
        for (int i = 0; i < 3; ++i)
            tags.push_back(client.send(command, 100, "IBM"));
    ASSERT_TRUE(hub.waitForRequests(tags.size()));
    hub.clearRefusals();
    hub.dropConnections();
    for (const std::int64_t tag : tags) {
        ASSERT_TRUE(client.waitForEnd(tag));
        EXPECT_EQ(client.messagesOf(tag).back().type, MessageEvent::IMAGE_COMPLETE);
    }
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    client.forget();
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(client.waitForEnd(tags.back()));
    std::vector<std::int64_t> replayed;
    for (const tivra_sim::Request& request : hub.requests()) {
        if (request.tag >= 18)
            replayed.push_back(request.tag);
    }
    EXPECT_THAT(replayed, ElementsAre(tags.back()));
}

TEST_F(RequestTest, WhatWasUnsubscribedStaysSoThoughNoHubHeardOfIt) {
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    client.connections().set(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, 1);
    const auto unsubscribe = [this](std::int64_t tag) {
        EXPECT_GE(client.send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(tag)}}), 18);
    };
    unsubscribe(client.send(tivra::SUBSCRIBE, 100, "IBM"));
    const std::int64_t bac = client.send(tivra::SUBSCRIBE, 100, "BAC");
    client.send(tivra::SUBSCRIBE, 100, "SPY");
    hub.setAccepting(false);
    EXPECT_NE(client.start(), "Session started") << "lost in the session's queue";
    hub.setAccepting(true);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_TRUE(client.waitForEnd(bac));

    hub.setAccepting(false);
    hub.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
    unsubscribe(bac);
    EXPECT_EQ(client.ask(tivra::GETSOURCEPORTDETAILS), 0) << "so the unsubscribe waits for its hub now";
    client.session().stop();
    hub.setAccepting(true);
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "SPY"), 0);
    std::vector<std::string> standing;
    for (const tivra_sim::Request& request : hub.requests()) {
        if (request.command == "Subscribe" && request.tag >= 18)
            standing.push_back(request.text.substr(0, request.text.rfind('|')));
    }
    EXPECT_THAT(standing, ElementsAre("5022=Subscribe|4=100|5=BAC", "5022=Subscribe|4=100|5=SPY",
                                      "5022=Subscribe|4=100|5=SPY"));
}

TEST_F(RequestTest, FullWatchlistStillTakesAnUnsubscribe) {
    client.settings().set(tivra::SessionConfig::MAX_WATCHLIST_SIZE_LONG, 1L);
    startWithWatchlist();
    const std::int64_t ibm = client.send(tivra::SUBSCRIBE, 100, "IBM");
    EXPECT_EQ(client.send(tivra::SUBSCRIBE, 100, "BAC"), 0);
    EXPECT_THAT(client.log(), HasSubstr("send() failed for tag 0: watchlist is full"));
    EXPECT_EQ(client.ask(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(ibm)}}), 0);
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "BAC"), 0);
}

TEST_F(RequestTest, PartCodeAndDisplayPrecisionAreInTheEventAndNotAmongItsFields) {
    struct Case {
        const char* part;
        const char* precision;
        char expectedPart;
        int expectedPrecision;
    };
    start();
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    for (const Case& c : {Case{"Q", "66", 'Q', 66}, Case{"\xE9", "131", '\xE9', 131}, Case{"", "", '\0', 1},
                          Case{"A", "80", 'A', 1}, Case{"A", "7", 'A', 0}}) {
        client.forget();
        std::string body = "4=100|5=IBM|101=1.5";
        if (*c.part != '\0')
            body += "|130=" + std::string(c.part) + "|25=" + c.precision;
        hub.sendBody(body);
        ASSERT_TRUE(client.waitForUpdates(1)) << body;
        const SeenMessage seen = client.messages().back();
        EXPECT_EQ(seen.partCode, c.expectedPart) << body;
        EXPECT_EQ(seen.displayPrecision, c.expectedPrecision) << body;
        EXPECT_THAT(seen.fields, ElementsAre(Pair(token::BID, testing::_))) << body;
    }
}

TEST_F(RequestTest, BurstThatALossCutsIsReplayedInTheOrderOfItsTags) {
    startWithWatchlist();
    std::vector<std::string> texts;
    for (int i = 0; i < 40; ++i)
        hub.pushRecord(Record(100, "B" + std::to_string(i)).add(token::BID, 1));
    hub.dropAfterFrames(7);
    std::vector<std::int64_t> tags;
    for (int i = 0; i < 40; ++i) {
        tags.push_back(client.send(tivra::SUBSCRIBE, 100, "B" + std::to_string(i)));
        texts.push_back("5022=Subscribe|4=100|5=B" + std::to_string(i) +
                        "|5026=" + std::to_string(tags.back()));
    }
    for (const std::int64_t tag : tags)
        ASSERT_TRUE(client.waitForEnd(tag));
    ASSERT_TRUE(hub.waitForSubscriptions(40));
    EXPECT_EQ(hub.statistics().accepted, 2U) << "the loss came while the burst was answered";
    std::vector<std::string> onLast;
    for (const tivra_sim::Request& request : hub.requests()) {
        if (request.tag >= 18 && request.connection == hub.statistics().accepted)
            onLast.push_back(request.text);
    }
    EXPECT_EQ(onLast, texts);
}

TEST_F(RequestTest, ForeignTagsInUnsubscribesAndAnswersAreHarmless) {
    startWithWatchlist();
    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(snap));
    for (const std::string& tag :
         {std::string("-1"), std::string("0"), std::string("17"), std::to_string(snap),
          std::string("9223372036854775807"), std::string("-9223372036854775808"), std::string(40, '9'),
          std::string("IBM|5026=18"), std::string()}) {
        SCOPED_TRACE(tag);
        hub.sendBody("5026=" + tag + "|5001=0");
        hub.sendBody("5026=" + tag + "|5001=-218");
        // The application's side is kept from adding a pair of its own.
        const std::string value = tag.substr(0, tag.find('|'));
        const std::int64_t end = client.send(tivra::UNSUBSCRIBE, 100, "IBM", {{tivra::QUERY_REF_TAG, value}});
        ASSERT_TRUE(client.waitForEnd(end));
        EXPECT_EQ(client.messagesOf(end).back().status, status::UNKNOWN_SYMBOL);
        EXPECT_EQ(lastSent("Unsubscribe"),
                  "5026=" + std::to_string(end) + "|5022=Unsubscribe||5=UNSUBTAGNOTFOUNDWATCHLIST");
    }
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_EQ(hub.statistics().accepted, 1U);
}

} // namespace
