// Two hubs that share the sources between them: one answer for a request to both, and rights that change.
#include "Client.h"
#include "Gate.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using tivra::MessageEvent;

namespace {

bool isEnd(MessageEvent::Types type) {
    return type == MessageEvent::STATUS || type == MessageEvent::IMAGE_COMPLETE;
}

/// An application whose callback can be held up.
struct SlowClient : Client {
    using Client::Client;
    /// Its callbacks end while it is still one.
    ~SlowClient() override {
        gate.open();
        destroySession();
    }
    SlowClient(const SlowClient&) = delete;
    SlowClient& operator=(const SlowClient&) = delete;
    void onMessageEvent(const MessageEvent& event) override {
        if (isHeld)
            gate.wait();
        if (event.getStatusCode() == -997) {
            EXPECT_THAT(sessionEvents(), testing::Contains("RECOVERY")) << "the loss is reported first";
        }
        Client::onMessageEvent(event);
    }
    std::atomic<bool> isHeld{false};
    Gate gate;
};

class SeveralHubsTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(client.startAndWait()); }

    /// Everything that the hubs have sent so far has reached the application.
    void settle() {
        EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        EXPECT_EQ(client.ask(tivra::QUERYSNAP, 101, "IBM131221C185"), 0);
    }
    /// The questions that the first hub, which is the default one, has got for the port of a source.
    std::vector<tivra_sim::Request> portQuestions(int source) {
        std::vector<tivra_sim::Request> found = first.requests();
        const std::string end = "|5022=GetPort|4=" + std::to_string(source);
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&end](const tivra_sim::Request& request) {
                                       return request.text != "5026=" + std::to_string(request.tag) + end;
                                   }),
                    found.end());
        return found;
    }

    StartedHub first{hubOf({100, 922})};
    StartedHub second{hubOf({101, 922, 4100})};
    SlowClient client{Client::Options({first.hostString(), second.hostString()})};
};

struct Answer {
    bool isSecond;
    std::string fields;
};

struct Fanned {
    const char* word;
    tivra::Commands command;
    int source;
    std::vector<Answer> answers;
    std::vector<std::string> seen; ///< a part, or an end with its status
};

TEST_F(SeveralHubsTest, ARequestToAllGetsOneAnswer) {
    const std::string data = "3131=someone|";
    const Fanned table[] = {
        // A hub that answers twice does not answer for the other one.
        {"QueryXRef",
         tivra::QUERYXREF,
         0,
         {{false, "5001=0"}, {false, "5001=-9"}, {true, "5001=-3"}},
         {"end -3"}},
        {"QueryDepth", tivra::QUERYDEPTH, 4100, {{true, "5001=-220"}, {false, "5001=-220"}}, {"end -220"}},
        {"QueryWildCard", tivra::QUERYWILDCARD, 4100, {{true, "5001=-220"}, {false, "5001=2"}}, {"end 2"}},
        {"Subscribe", tivra::SUBSCRIBE, 4100, {{false, "5001=-220"}, {true, "5001=4"}}, {"end 4"}},
        {"GetAllUsers", tivra::GETALLUSERS, 0, {{true, "5001=7"}, {false, "5001=0"}}, {"end 7"}},
        {"GetActiveClientsInfo",
         tivra::GETACTIVECLIENTSINFO,
         0,
         {{false, data + "5001=0"}, {true, "5001=0"}},
         {"part", "end 0"}},
        {"ListExtendedExchangeInfo",
         tivra::LISTEXTENDEDEXCHANGEINFO,
         0,
         {{true, "5001=0"}, {false, data + "5001=1"}},
         {"end 1"}},
    };
    for (const Fanned& row : table) {
        SCOPED_TRACE(row.word);
        for (StartedHub* hub : {&first, &second}) {
            hub->clearRequests();
            hub->ignore(row.word);
        }
        const std::int64_t tag = client.send(row.command, row.source, row.source != 0 ? "NEWS" : "");
        ASSERT_TRUE(first.waitForCommand(row.word));
        ASSERT_TRUE(second.waitForCommand(row.word));
        for (const Answer& answer : row.answers) {
            StartedHub& hub = answer.isSecond ? second : first;
            hub.sendBody("5026=" + std::to_string(tag) + "|" + answer.fields);
            settle();
        }
        std::vector<std::string> seen;
        for (const SeenMessage& message : client.messagesOf(tag)) {
            seen.push_back(isEnd(message.type) ? "end " + std::to_string(message.status) : "part");
        }
        EXPECT_THAT(seen, ElementsAreArray(row.seen));
        first.clearRefusals();
        second.clearRefusals();
    }
}

TEST_F(SeveralHubsTest, ALostHubEndsWhatItOwesOnceAndAfterWhatItHadSent) {
    client.settings().set(tivra::SessionConfig::END_LOST_REQUESTS_BOOL, true);
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    for (StartedHub* hub : {&first, &second})
        hub->ignore(tivra_sim::Hub::ANY_COMMAND);
    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "IBM");
    const std::int64_t subscribe = client.send(tivra::SUBSCRIBE, 100, "BAC");
    const std::int64_t inTime = client.send(tivra::QUERYSNAP, 100, "BAC");
    const std::int64_t xref = client.send(tivra::QUERYXREF, 0, "IBM");
    const std::int64_t users = client.send(tivra::GETALLUSERS);
    for (StartedHub* hub : {&first, &second})
        ASSERT_TRUE(hub->waitForCommand("GetAllUsers"));
    client.isHeld = true;
    for (int i = 0; i < 200; ++i)
        first.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, i));
    first.sendBody("5026=" + std::to_string(inTime) + "|5001=0");
    first.setAccepting(false);
    first.dropConnections();
    ASSERT_TRUE(client.waitForLog("connection lost before the answers"));
    client.gate.open();

    ASSERT_TRUE(client.waitForEnd(subscribe));
    for (const std::int64_t tag : {xref, users})
        second.sendBody("5026=" + std::to_string(tag) + "|5001=0");
    const std::int64_t later = client.send(tivra::QUERYSNAP, 100, "IBM");
    first.clearRefusals();
    first.setAccepting(true);
    const std::tuple<std::int64_t, MessageEvent::Types, int> ends[] = {
        {snap, MessageEvent::IMAGE_COMPLETE, -997}, {subscribe, MessageEvent::STATUS, -997},
        {inTime, MessageEvent::IMAGE_COMPLETE, 0},  {users, MessageEvent::STATUS, 0},
        {xref, MessageEvent::IMAGE_COMPLETE, -997}, {later, MessageEvent::IMAGE_COMPLETE, 0}};
    for (const auto& [tag, type, status] : ends) {
        ASSERT_TRUE(client.waitForEnd(tag)) << tag;
        std::vector<SeenMessage> seen = client.messagesOf(tag);
        seen.erase(std::remove_if(seen.begin(), seen.end(),
                                  [](const SeenMessage& message) { return !isEnd(message.type); }),
                   seen.end());
        ASSERT_THAT(seen, testing::SizeIs(1)) << tag;
        EXPECT_EQ(seen.front().type, type) << tag;
        EXPECT_EQ(seen.front().status, status) << tag;
        EXPECT_EQ(seen.front().statusText == "Connection lost before the answer", status == -997) << tag;
    }
}

TEST_F(SeveralHubsTest, WhatALostHubOwesIsForgottenAndDoesNotEndUnlessThatIsWanted) {
    for (StartedHub* hub : {&first, &second})
        hub->ignore(tivra_sim::Hub::ANY_COMMAND);
    const std::int64_t snap = client.send(tivra::QUERYSNAP, 100, "IBM");
    const std::int64_t xref = client.send(tivra::QUERYXREF, 0, "IBM");
    for (StartedHub* hub : {&first, &second}) {
        ASSERT_TRUE(hub->waitForCommand("QueryXRef"));
        hub->clearRefusals();
    }
    first.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    second.sendBody("5026=" + std::to_string(xref) + "|5001=0");
    settle();
    EXPECT_THAT(client.messagesOf(xref), testing::IsEmpty()) << "an end would claim to be whole";
    for (const std::int64_t tag : {snap, xref}) {
        EXPECT_THAT(client.messagesOf(tag), testing::IsEmpty());
        first.sendBody("5026=" + std::to_string(tag) + "|5001=0");
        EXPECT_TRUE(
            client.waitForLog("Internal Error: Request with tag=" + std::to_string(tag) + " not found"));
    }
}

/// A hub that is away while its requests pile up: others pass them, a question to both is answered by the
/// other hub, and nothing is lost or overtaken.
TEST(SeveralHubs, FullQueueOfOneHubKeepsTheOrder) {
    StartedHub first(hubOf({100, 922}));
    StartedHub second(hubOf({101, 922}));
    Client client(Client::Options({first.hostString(), second.hostString()}));
    client.settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, true);
    std::atomic<std::int64_t> lastFiller{std::numeric_limits<std::int64_t>::max()};
    std::atomic<int> answered{0};
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getTag() > lastFiller && isEnd(event.getType())) {
            ++answered;
            client.notify();
        }
    };
    ASSERT_TRUE(client.startAndWait());
    second.setAccepting(false);
    second.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("RECOVERY"));

    constexpr int queueSize = 100000;
    tivra::Request& request = client.session().createRequest();
    request.setCommand(tivra::QUERYSNAP);
    request.add(tivra::ENUM_SRC_ID, 101).add(tivra::SYMBOL_TICKER, std::string("NOSUCH"));
    std::int64_t last = 0;
    for (int sent = 0; sent < queueSize; ++sent) {
        while ((last = client.session().send(request)) == 0)
            std::this_thread::yield();
    }
    client.session().freeRequest(request);
    lastFiller = last;
    std::vector<std::string> held;
    for (const char* symbol : {"A", "B", "C", "D", "E"})
        held.push_back("5022=QuerySnap|4=101|5=" + std::string(symbol) +
                       "|5026=" + std::to_string(client.send(tivra::QUERYSNAP, 101, symbol)));
    client.send(tivra::QUERYXREF, 0, "IBM");
    client.send(tivra::QUERYSNAP, 100, "IBM");
    EXPECT_TRUE(client.waitUntil([&] { return answered == 2; })) << "by the hub that could be fed";
    const std::string standing =
        "5022=SubscribeWildCard|5=*|5026=" + std::to_string(client.send(tivra::SUBSCRIBEWILDCARD, 0, "*"));
    EXPECT_TRUE(first.waitForCommand("SubscribeWildCard"));
    held.push_back(standing);

    second.clearRequests();
    second.setAccepting(true);
    EXPECT_TRUE(client.waitUntil([&] { return answered == 2 + int(held.size()); }, std::chrono::minutes(5)));
    std::vector<std::string> texts = second.requestTexts();
    ASSERT_GE(texts.size(), queueSize + held.size());
    texts.erase(texts.begin(), texts.end() - static_cast<std::ptrdiff_t>(held.size()));
    EXPECT_EQ(texts, held);
}

TEST_F(SeveralHubsTest, AGrantedSourceIsLookedForAndAWithdrawnOneIsItsHubsBusiness) {
    client.forget();
    first.pushEntitlementAlert(101, false); // the second hub's
    first.pushEntitlementAlert(100, false);
    first.pushEntitlementAlert(100, false); // no news
    ASSERT_TRUE(client.waitForSessionEvent("SOURCE_REMOVED 100"));

    first.ignore("GetPort");
    struct Found {
        int source;
        std::string fields;
        std::string logged;
    };
    const std::string host = "13001=127.0.0.1|13101=";
    const Found table[] = {
        {555, host + std::to_string(second.port()) + "|5001=0", ""},
        {556, "5001=-46", "GetPort failed with rc=-46; dynamic add entitlement for src 556 has failed"},
        {557, host + "70000|5001=0",
         "GetPort failed with port=70000; dynamic add entitlement for src 557 has failed"},
        {558, host + "9|5001=0", "No HubClient, so new entitlement for src 558 cannot be added"},
        {559, "13101=" + std::to_string(second.port()) + "|5001=0",
         "hostConfig(:" + std::to_string(second.port()) + ") not found!"},
    };
    for (const Found& row : table) {
        second.pushEntitlementAlert(row.source, true);
        first.pushEntitlementAlert(row.source, true);
        settle();
        const std::vector<tivra_sim::Request> questions = portQuestions(row.source);
        ASSERT_THAT(questions, testing::SizeIs(1)) << "one question is enough";
        first.sendBody("5026=" + std::to_string(questions.front().tag) + "|" + row.fields);
        settle();
        EXPECT_THAT(client.log(), HasSubstr(row.logged));
        EXPECT_THAT(client.messagesOf(questions.front().tag), testing::IsEmpty());
    }
    ASSERT_TRUE(client.waitForSessionEvent("SOURCE_ADDED 555"));
    EXPECT_THAT(client.sessionEvents(), ElementsAre("SOURCE_REMOVED 100", "SOURCE_ADDED 555"));
    client.send(tivra::QUERYSNAP, 555, "IBM");
    EXPECT_TRUE(second.waitForRequest(
        [](const auto& request) { return request.text.find("|4=555|") != std::string::npos; }));

    client.session().stop();
    client.forget();
    first.clearRefusals();
    ASSERT_TRUE(client.startAndWait());
    first.clearRequests();
    first.pushEntitlementAlert(556, true);
    settle();
    EXPECT_THAT(portQuestions(556), testing::SizeIs(1)) << "a new run asks anew";
}

} // namespace
