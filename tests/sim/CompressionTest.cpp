#include "RawClient.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace tivra_sim;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

const std::string LOGIN =
    "5026=1|5022=LoginUser|5028=demo|5029=demo|13265=1|5053=V1.7.0.1|5129=C++|5128=Linux";
const std::string ECHO = "5026=20|5022=Echo";
const std::string ECHOED = "5026=20|5001=0";

} // namespace

TEST(Compression, StreamBeginsWithTheLoginsAnswerAndAllFollowsInIt) {
    Hub hub(quietConfig());
    hub.start();
    RawClient client(hub);
    client.expectCompression();
    EXPECT_THAT(client.ask(LOGIN), ElementsAre("5026=1|5001=0"));
    const std::vector<std::string> dictionary = client.ask("5026=6|5022=ListInternalTokens");
    EXPECT_EQ(dictionary.size(), hub.config().dictionary.size() + 1);
    EXPECT_EQ(client.statusOf("5026=30|5022=Subscribe|4=100|5=IBM"), status::SUCCESS);
    EXPECT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "185.25")), 1U);
    EXPECT_EQ(client.next(), Record(100, "IBM").add(token::BID, "185.25").body());
    hub.sendRaw(encodeFrame("1=raw"));
    EXPECT_EQ(client.next(), "1=raw");
    // What the hub sent is smaller than its texts.
    std::size_t plain = 0;
    for (const std::string& body : dictionary)
        plain += body.size();
    EXPECT_LT(hub.statistics().bytesSent, plain / 2);
}

TEST(Compression, EachConnectionHasItsOwnStreamAndMayHaveNone) {
    Hub hub(quietConfig());
    hub.start();
    RawClient first(hub);
    RawClient second(hub);
    RawClient plain(hub);
    for (RawClient* client : {&first, &second}) {
        client->expectCompression();
        client->ask(LOGIN);
        client->ask("5026=6|5022=ListInternalTokens");
    }
    plain.logIn();
    for (RawClient* client : {&second, &plain, &first})
        EXPECT_THAT(client->ask(ECHO), ElementsAre(ECHOED));
}

/// A client that asked for it can read nothing else, a refusal included.
TEST(Compression, RefusalsAndScriptedAnswersAreCompressedToo) {
    Hub hub(quietConfig());
    hub.start();
    RawClient client(hub);
    client.expectCompression();
    hub.refuseLogin(status::TOO_MANY_LOGINS, 1);
    EXPECT_EQ(client.statusOf(LOGIN), status::TOO_MANY_LOGINS);
    EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=demo|5029=wrong|13265=1"), status::BAD_LOGIN);
    EXPECT_EQ(client.statusOf(LOGIN), status::SUCCESS);
}

TEST(Compression, IsRefusedPlainlyWhereItCannotBe) {
    HubConfig config = quietConfig();
    config.compression = false;
    for (const bool isOff : {true, false}) {
        Hub hub(isOff ? config : quietConfig());
        hub.start();
        RawClient client(hub);
        // A stream that has begun plainly can't turn into another.
        if (!isOff) {
            EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=demo|5029=wrong|13265=0"),
                      status::BAD_LOGIN);
        }
        EXPECT_EQ(client.statusOf(LOGIN), status::BAD_PARAMETER);
        client.logIn();
        EXPECT_THAT(client.ask(ECHO), ElementsAre(ECHOED));
    }
    EXPECT_FALSE(HubConfig::fromJson(R"({"compression": false})").compression);
    EXPECT_FALSE(HubConfig::fromJson(config.toJson()).compression);
    EXPECT_TRUE(HubConfig::fromJson("{}").compression);
}

class CompressedControl : public testing::Test {
protected:
    CompressedControl() : hub(quietConfig()), client(start(hub)) {
        client.expectCompression();
        client.ask(LOGIN);
    }

    static Hub& start(Hub& hub) {
        hub.start();
        return hub;
    }

    Hub hub;
    RawClient client;
};

TEST_F(CompressedControl, DropCountsFramesAndBytesOnTheWire) {
    hub.dropAfterFrames(3);
    client.send("5026=6|5022=ListInternalTokens");
    const std::string plain = client.inflated(client.readToEnd());
    EXPECT_EQ(std::count(plain.begin(), plain.end(), '\x03'), 3);
    EXPECT_EQ(plain.back(), '\x03');

    RawClient other(hub);
    other.expectCompression();
    other.ask(LOGIN);
    hub.dropAfterBytes(25);
    other.send("5026=6|5022=ListInternalTokens");
    EXPECT_EQ(other.readToEnd().size(), 25U);
}

TEST_F(CompressedControl, PiecesAreCutOutOfTheCompressedBytes) {
    hub.splitFrames(4, 1h);
    client.send(ECHO);
    client.send(ECHO);
    std::string wire = client.readSome();
    EXPECT_EQ(wire.size(), 4U);
    std::string plain = client.inflated(wire);
    EXPECT_LT(plain.size(), encodeFrame(ECHOED).size());
    hub.setWriteSize(0);
    while (plain.size() < 2 * encodeFrame(ECHOED).size())
        plain += client.inflated(client.readSome());
    EXPECT_EQ(plain, encodeFrame(ECHOED) + encodeFrame(ECHOED));
    hub.setWriteSize(1, 100us);
    EXPECT_THAT(client.ask(ECHO), ElementsAre(ECHOED));
}

TEST_F(CompressedControl, BytesPastTheCompressionComeAsTheyAreAndInOrder) {
    hub.setSilent(true);
    hub.sendRaw(encodeFrame("1=before"));
    hub.sendPastCompression("garbage");
    hub.sendRaw(encodeFrame("1=behind"));
    hub.setSilent(false);
    hub.dropConnections();
    const std::string wire = client.readToEnd();
    const std::size_t garbage = wire.find("garbage");
    ASSERT_NE(garbage, std::string::npos);
    EXPECT_EQ(client.inflated(wire.substr(0, garbage)), encodeFrame("1=before"));
    EXPECT_EQ(client.inflated(wire.substr(garbage + 7)), encodeFrame("1=behind"));
}

TEST(Compression, EveryLevelAndEveryWayOfFlushingIsTheSameText) {
    const std::pair<const char*, Flush> flushes[]{{"batch", Flush::EachBatch},
                                                  {"frame", Flush::EachFrame},
                                                  {"block", Flush::EachBlock},
                                                  {"rarely", Flush::Rarely},
                                                  {"full", Flush::WhenFull}};
    for (int level = 0; level <= 9; level += 3) {
        for (const auto& [name, flush] : flushes) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(level));
            HubConfig config =
                HubConfig::fromJson(R"({"compressionFlush": ")" + std::string(name) +
                                    R"(", "compressionLevel": )" + std::to_string(level) + "}");
            ASSERT_EQ(config.compressionFlush, flush);
            config.heartbeat.enabled = config.hubStatus.enabled = false;
            Hub hub(config);
            hub.start();
            RawClient client(hub);
            client.expectCompression();
            client.ask(LOGIN);
            client.ask("5026=6|5022=ListInternalTokens"); // something to refer to
            EXPECT_EQ(client.statusOf("5026=30|5022=Subscribe|4=100|5=IBM"), status::SUCCESS);
            const std::uint64_t before = hub.statistics().bytesSent;
            std::vector<std::string> bodies;
            for (int i = 0; i < 500; ++i) {
                const Record record =
                    Record(100, "IBM").add(token::SEQUENCE, i).add(token::BID, i * 37 % 1000);
                bodies.push_back(record.body());
                hub.pushRecord(record);
            }
            const std::uint64_t pushed = hub.statistics().bytesSent - before;
            if (flush == Flush::WhenFull && level > 0) {
                EXPECT_LT(pushed, 500U) << "it keeps what it can";
            } else if (flush == Flush::EachFrame) {
                EXPECT_GT(pushed, 500U * 5U);
            }
            // An answer has all before it pushed out.
            client.send(ECHO);
            for (const std::string& body : bodies)
                ASSERT_EQ(client.next(), body);
            EXPECT_EQ(client.next(), ECHOED);
        }
    }
}

TEST(Compression, PlaybackComesWholeAndInOrderToASlowReader) {
    HubConfig config = quietConfig();
    config.playback.file = TIVRA_SAMPLE_DAY;
    config.playback.startWhenSubscriptions = 8;
    config.outputLimit = 100000;
    Hub hub(config);
    hub.start();
    RawClient plain(hub);
    RawClient slow(hub);
    slow.expectCompression();
    plain.logIn();
    slow.ask(LOGIN);
    for (RawClient* client : {&plain, &slow}) {
        for (const char* symbol : {"AIG", "BAC", "IBM", "SPY"})
            client->send(std::string("5022=Subscribe|4=100|5=") + symbol + "|5026=30");
    }
    // The two are held against each other, far apart in time.
    constexpr std::size_t EVENTS = 40000;
    std::vector<std::string> updates;
    for (RawClient* client : {&plain, &slow}) {
        std::size_t count = 0;
        while (count < EVENTS) {
            const std::optional<std::string> body = client->next();
            ASSERT_TRUE(body) << count;
            if (!findValue(*body, token::TAG).empty())
                continue;
            if (client == &plain)
                updates.push_back(*body);
            else
                ASSERT_EQ(*body, updates[count]);
            ++count;
        }
    }
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(hub.statistics().playbackSent, 2 * EVENTS);
}
