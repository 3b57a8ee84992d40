// Requests and what comes back for them.
#include "Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST_F(RequestTest, WhatFitsNoFrameOrCouldForgeAPairIsRefused) {
    const std::string longest(4000, 'x');
    std::vector<Client::Field> fields{{tivra::USER_NAME, longest}, {tivra::USER_NAME, longest}};
    EXPECT_GE(client.send(tivra::GETALLUSERS, 0, "", fields), 18);
    fields.push_back(fields.front());
    EXPECT_EQ(client.send(tivra::GETALLUSERS, 0, "", fields), 0);
    EXPECT_THAT(client.log(), HasSubstr("request is too long"));
    EXPECT_EQ(client.send(tivra::QUERYSNAP, 100, "IBM|5022=UnsubscribeWildCard"), 0);
    EXPECT_THAT(client.log(), HasSubstr("a value of the request was refused"));
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

TEST_F(RequestTest, TheLastConflationIntervalOutlivesALossAndTheStandingTagsAStop) {
    startWithWatchlist();
    EXPECT_EQ(client.ask(tivra::SETCONFLATIONINTERVAL, 0, "", {{tivra::CONFLATION_INTERVAL, "500"}}), 0);
    const std::int64_t ibm = client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(ibm));
    hub.clearRequests();
    client.forget();
    hub.dropConnections(Hub::Close::Reset);
    ASSERT_TRUE(client.waitForEnd(ibm)) << "under its old tag";
    EXPECT_THAT(lastSent("SetConflationInterval"), HasSubstr("|2029=500"));
    client.session().stop();
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.send(tivra::QUERYSNAP, 100, "SPY"), ibm + 1) << "tags go on after those that stand";
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
    const std::int64_t spy = client.send(tivra::SUBSCRIBE, 100, "SPY");
    hub.setAccepting(false);
    EXPECT_NE(client.start(), "Session started") << "lost in the session's queue";
    hub.setAccepting(true);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_TRUE(client.waitForEnd(bac));
    ASSERT_TRUE(client.waitForEnd(spy));

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
