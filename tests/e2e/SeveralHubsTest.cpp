// Two hubs that share the sources between them: what is asked of both, and what one of them leaves
// unanswered.
#include "Client.h"

#include <tivra_testkit/Gate.h>

#include <algorithm>
#include <atomic>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::MessageEvent;

namespace {

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
    tivra_testkit::Gate gate;
};

class SeveralHubsTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(client.startAndWait()); }

    StartedHub first{hubOf({100, 922})};
    StartedHub second{hubOf({101, 922, 4100})};
    SlowClient client{Client::Options({first.hostString(), second.hostString()})};
};

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
                                  [](const SeenMessage& message) { return !message.isEnd(); }),
                   seen.end());
        ASSERT_THAT(seen, testing::SizeIs(1)) << tag;
        EXPECT_EQ(seen.front().type, type) << tag;
        EXPECT_EQ(seen.front().status, status) << tag;
        EXPECT_EQ(seen.front().statusText == "Connection lost before the answer", status == -997) << tag;
    }
}

} // namespace
