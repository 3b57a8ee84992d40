// Streams cut at every byte, bytes that are no frames, and hubs that vanish in the middle of a sentence.
#include "Client.h"

#include <atomic>
#include <ostream>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::encodeFrame;
using tivra_sim::encodeFrameWithLength;
using tivra_sim::Hub;
using tivra_sim::HubConfig;
using tivra_sim::Record;
namespace token = tivra_sim::token;
using namespace std::chrono_literals;

namespace {

/// A hub without records of its own, so that a test knows every byte on the wire.
HubConfig quietConfig() {
    HubConfig config = HubConfig::realistic();
    config.heartbeat.enabled = false;
    config.hubStatus.enabled = false;
    return config;
}

class BadBytesTest : public testing::Test {
protected:
    BadBytesTest() { client.connections().set(HostConfig::READ_TIMEOUT_LONG, 20); }
    void startSubscribed() {
        ASSERT_TRUE(client.startAndWait());
        ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    }
    void push(int sequence) {
        hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, sequence).add(token::BID, "185.25"));
    }
    bool waitForSequence(int sequence) {
        return client.waitForMessage([text = std::to_string(sequence)](const SeenMessage& message) {
            return message.field(token::SEQUENCE) == text && message.field(token::BID) == "185.25";
        });
    }

    StartedHub hub{quietConfig()};
    Client client{hub};
};

TEST_F(BadBytesTest, ConversationAndDataInSingleBytes) {
    hub.setWriteSize(1, 0us);
    startSubscribed();
    for (int sequence = 0; sequence < 20; ++sequence)
        push(sequence);
    EXPECT_TRUE(waitForSequence(19));
    EXPECT_EQ(client.messages().size(), 21U);
}

TEST_F(BadBytesTest, FramesSplitAtEveryByte) {
    startSubscribed();
    const int length = static_cast<int>(encodeFrame("3=100|4=100|5=IBM|30=100|101=185.25").size());
    for (int offset = 1; offset <= length; ++offset) {
        hub.splitFrames(static_cast<std::size_t>(offset), 200us);
        push(100 + offset);
    }
    ASSERT_TRUE(waitForSequence(100 + length));
    const std::vector<SeenMessage> seen = client.messages();
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(length) + 1);
    for (std::size_t i = 1; i < seen.size(); ++i)
        EXPECT_EQ(seen[i].field(token::SEQUENCE), std::to_string(100 + i));
}

struct Garbage {
    const char* name;
    std::string bytes;
};

std::ostream& operator<<(std::ostream& out, const Garbage& garbage) {
    return out << garbage.name;
}

std::vector<Garbage> garbages() {
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    const std::string body = "3=100|4=100|5=IBM|101=1";
    return {{"Text", "this is no frame"},
            {"EveryByte", everyByte},
            {"StartBytes", std::string(64, '\x04')},
            {"LengthTooLong", encodeFrameWithLength(body, 300000)},
            {"LengthHuge", encodeFrameWithLength(body, 0xFFFFFFFFU)},
            {"LengthSomewhatLong", encodeFrameWithLength(body, 1000)},
            {"LengthShort", encodeFrameWithLength(body, 3)},
            {"LengthZero", encodeFrameWithLength(body, 0)},
            {"EmptyBody", encodeFrame("")},
            {"NoPairs", encodeFrame("|||===|=|a=b|5=")},
            {"UnknownTokens", encodeFrame("99999999=1|99999999999999999999=2|-4=3")},
            {"OddValues", encodeFrame("3=x|4=99999999999999999999|5=|101=1.2.3e|202=never")},
            {"TruncatedFrame", encodeFrame(body).substr(0, 12)},
            {"LongBody", encodeFrame("5=" + std::string(200000, 'L'))}};
}

/// Frames after the garbage are delivered again, at the latest when a false length has been used up.
TEST_F(BadBytesTest, GarbageAfterReadyIsSkipped) {
    startSubscribed();
    int sequence = 1000;
    for (const Garbage& garbage : garbages()) {
        SCOPED_TRACE(garbage.name);
        hub.sendRaw(garbage.bytes);
        for (int i = 0; i < 60; ++i)
            push(++sequence);
        EXPECT_TRUE(waitForSequence(sequence));
    }
    for (const SeenMessage& message : client.messages()) {
        if (!message.field(token::SEQUENCE).empty()) {
            EXPECT_EQ(message.field(token::BID), "185.25");
        }
    }
    EXPECT_EQ(client.session().getState(), tivra::Session::TIVRA_SESSION_ESTABLISHED);
    EXPECT_EQ(hub.statistics().accepted, 1U) << "no garbage costs the connection";
}

/// What is no frame is no sign of life, and more of it than any fault of a line explains ends the connection.
TEST(GarbageStream, IsTakenForSilenceAndInMassForALoss) {
    for (const bool isCompressed : {false, true}) {
        StartedHub hub(quietConfig());
        Client client(hub);
        client.connections()
            .set(HostConfig::READ_TIMEOUT_LONG, 60)
            .set(HostConfig::COMPRESSION_BOOL, isCompressed);
        ASSERT_TRUE(client.startAndWait());
        ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
        hub.sendRaw(std::string(100'000, 'x'));
        hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, 1));
        ASSERT_TRUE(client.waitForUpdates(1));
        const std::string log = client.log();
        const std::size_t warning = log.find(" bytes without a frame");
        EXPECT_NE(warning, std::string::npos);
        EXPECT_EQ(log.find(" bytes without a frame", warning + 1), std::string::npos);
        EXPECT_EQ(hub.statistics().accepted, 1U);
        for (int i = 0; i < 6; ++i)
            hub.sendRaw(std::string(200'000, 'x'));
        EXPECT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
        client.session().stop();

        client.connections().set(HostConfig::READ_TIMEOUT_LONG, 1);
        client.forget();
        ASSERT_TRUE(client.startAndWait());
        std::atomic<bool> mustEnd{false};
        std::thread dripping([&] {
            while (!mustEnd) {
                hub.sendRaw(std::string(1, '\0'));
                std::this_thread::sleep_for(100ms); // the pace of the garbage
            }
        });
        EXPECT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
        mustEnd = true;
        dripping.join();
    }
}

class GarbageDuringStart : public testing::TestWithParam<Garbage> {};

TEST_P(GarbageDuringStart, EndsWithAReasonOrIsOvercome) {
    StartedHub hub(quietConfig());
    Client client(hub);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 1);
    for (const std::int64_t step : {1, 6, 12}) {
        SCOPED_TRACE(step);
        std::atomic<bool> isDone{false};
        hub.script([&](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
            if (request.tag != step || isDone.exchange(true))
                return std::nullopt;
            return Hub::Frames{GetParam().bytes};
        });
        const std::string reason = client.start();
        EXPECT_NE(reason, "");
        EXPECT_EQ(client.isStarted, reason == "Session started");
        if (client.isStarted) {
            EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        }
        client.session().stop();
    }
    hub.script({});
    EXPECT_TRUE(client.startAndWait()) << "nothing of it lasts";
}

INSTANTIATE_TEST_SUITE_P(E2E, GarbageDuringStart, testing::ValuesIn(garbages()),
                         [](const auto& test) { return std::string(test.param.name); });

/// The connection is lost once at every step, closed and reset in turn, and the start goes on from there.
TEST_F(BadBytesTest, HubVanishesAtEveryStepOfTheConversation) {
    client.connections().set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 50);
    std::set<std::int64_t> lost; // the hub's thread only
    hub.script([&](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        if (request.tag >= 18 || !lost.insert(request.tag).second)
            return std::nullopt;
        hub.dropConnections(lost.size() % 2 == 0 ? Hub::Close::Reset : Hub::Close::Orderly);
        return Hub::Frames{};
    });
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_GE(hub.statistics().accepted, 12U);
}

TEST(SilentHub, IsDialledAgainWhenItFallsSilentInAReconnect) {
    StartedHub hub;
    Client client(hub);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 1);
    ASSERT_TRUE(client.startAndWait());
    hub.ignore("ListAdministrationInfo", 1);
    hub.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    EXPECT_GE(hub.statistics().accepted, 3U);
}

TEST_F(BadBytesTest, HubIsLostInTheMiddleOfAFrame) {
    startSubscribed();
    hub.dropAfterBytes(20, Hub::Close::Reset);
    push(1);
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    push(2);
    EXPECT_TRUE(waitForSequence(2)) << "the half frame does not spoil the next connection";
}

} // namespace
