#include "SimTest.h"

#include <string>
#include <vector>

using namespace tivra_sim;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

const std::string kLogin = "5026=1|5022=LoginUser|5028=demo|5029=demo|13265=1";
const std::string kEcho = "5026=20|5022=Echo";
const std::string kEchoed = "5026=20|5001=0";

TEST(Compression, StreamBeginsWithTheLoginsAnswerAndAllFollowsInIt) {
    StartedHub hub;
    LoggedIn other(hub, true);
    LoggedIn plain(hub);
    RawClient client(hub);
    client.expectCompression();
    // A client that asked for it can read nothing else, a refusal included.
    hub.refuseLogin(status::TOO_MANY_LOGINS, 1);
    EXPECT_EQ(client.statusOf(kLogin), status::TOO_MANY_LOGINS);
    EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=demo|5029=wrong|13265=1"), status::BAD_LOGIN);
    EXPECT_THAT(client.ask(kLogin), ElementsAre("5026=1|5001=0"));
    const std::vector<std::string> dictionary = client.ask("5026=6|5022=ListInternalTokens");
    EXPECT_EQ(dictionary.size(), hub.config().dictionary.size() + 1);
    EXPECT_EQ(client.statusOf("5026=30|5022=Subscribe|4=100|5=IBM"), status::SUCCESS);
    EXPECT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "185.25")), 1U);
    EXPECT_EQ(client.next(), Record(100, "IBM").add(token::BID, "185.25").body());
    hub.sendRaw(encodeFrame("1=raw"));
    EXPECT_EQ(client.next(), "1=raw");
    // What the hub sent is smaller than its texts.
    std::size_t length = 0;
    for (const std::string& body : dictionary)
        length += body.size();
    EXPECT_LT(hub.statistics().bytesSent, length / 2);
    // Each connection has its own stream, or none.
    for (LoggedIn* each : {&other, &plain})
        EXPECT_THAT(each->ask(kEcho), ElementsAre(kEchoed));
}

TEST(Compression, IsRefusedPlainlyWhereItCannotBe) {
    HubConfig config = HubConfig::quiet();
    config.compression = false;
    for (const bool isOff : {true, false}) {
        StartedHub hub(isOff ? config : HubConfig::quiet());
        RawClient client(hub);
        // A stream that has begun plainly can't turn into another.
        if (!isOff) {
            EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=demo|5029=wrong|13265=0"),
                      status::BAD_LOGIN);
        }
        EXPECT_EQ(client.statusOf(kLogin), status::BAD_PARAMETER);
        client.logIn();
        EXPECT_THAT(client.ask(kEcho), ElementsAre(kEchoed));
    }
}

TEST(Compression, PiecesAreCutOutOfTheCompressedBytes) {
    StartedHub hub;
    LoggedIn client(hub, true);
    hub.splitFrames(4, 1h);
    client.send(kEcho);
    client.send(kEcho);
    const std::string wire = client.readSome();
    EXPECT_EQ(wire.size(), 4U);
    std::string plain = client.inflated(wire);
    EXPECT_LT(plain.size(), encodeFrame(kEchoed).size());
    hub.setWriteSize(0);
    while (plain.size() < 2 * encodeFrame(kEchoed).size())
        plain += client.inflated(client.readSome());
    EXPECT_EQ(plain, encodeFrame(kEchoed) + encodeFrame(kEchoed));
    hub.setWriteSize(1, 100us);
    EXPECT_THAT(client.ask(kEcho), ElementsAre(kEchoed));
}

TEST(Compression, BytesPastItComeAsTheyAreAndInOrder) {
    StartedHub hub;
    LoggedIn client(hub, true);
    hub.setSilent(true);
    hub.sendRaw(encodeFrame("1=before"));
    hub.sendPastCompression("garbage");
    hub.sendRaw(encodeFrame("1=after"));
    hub.setSilent(false);
    hub.dropConnections();
    const std::string wire = client.readToEnd();
    const std::size_t garbage = wire.find("garbage");
    ASSERT_NE(garbage, std::string::npos);
    EXPECT_EQ(client.inflated(wire.substr(0, garbage)), encodeFrame("1=before"));
    EXPECT_EQ(client.inflated(wire.substr(garbage + 7)), encodeFrame("1=after"));
}

TEST(Compression, EveryLevelAndEveryWayOfFlushingIsTheSameText) {
    for (const auto& [name, flush] : {std::pair("batch", Flush::EachBatch),
                                      {"frame", Flush::EachFrame},
                                      {"block", Flush::EachBlock},
                                      {"rarely", Flush::Rarely},
                                      {"full", Flush::WhenFull}}) {
        for (int level = 0; level <= 9; level += 3) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(level));
            HubConfig config = HubConfig::fromJson(R"({"compressionFlush": ")" + std::string(name) + "\"}");
            ASSERT_EQ(config.compressionFlush, flush);
            config.compressionLevel = level;
            config.heartbeat.enabled = config.hubStatus.enabled = false;
            StartedHub hub(config);
            LoggedIn client(hub, true);
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
            client.send(kEcho);
            for (const std::string& body : bodies)
                ASSERT_EQ(client.next(), body);
            EXPECT_EQ(client.next(), kEchoed);
        }
    }
}

} // namespace
