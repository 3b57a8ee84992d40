#include "SimTest.h"

#include <unistd.h>
#include <zlib.h>

#include <fstream>
#include <string>
#include <vector>

using namespace tivra_sim;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

const std::string kColumns =
    "ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious\n";

/// What the hub makes of the sample day, whose events are all that the file's text has.
std::vector<std::string> sampleBodies() {
    std::vector<std::string> bodies;
    std::string text = kColumns;
    readTradingDay(TIVRA_SAMPLE_DAY, [&](const MarketEvent& e) {
        for (const std::string_view value :
             {e.milliseconds, e.symbol, std::string_view(&e.kind, 1), e.bid, e.bidSize, e.ask, e.askSize,
              e.price, e.size, e.exchange, e.condition, e.suspicious})
            text.append(value) += ',';
        text.back() = '\n';
        bodies.push_back(eventBody(e, 100, Playback().midnight, bodies.size() + 1));
        return true;
    });
    std::string file(text.size() + 1, '\0');
    const gzFile day = gzopen(TIVRA_SAMPLE_DAY, "rb");
    file.resize(static_cast<std::size_t>(gzread(day, file.data(), static_cast<unsigned>(file.size()))));
    gzclose(day);
    EXPECT_TRUE(file == text);
    return bodies;
}

std::string writeDay(const std::string& name, const std::string& lines) {
    const std::string path = testing::TempDir() + name + std::to_string(::getpid());
    std::ofstream(path) << kColumns << lines;
    return path;
}

HubConfig playbackConfig(const std::string& file, std::size_t startWhen) {
    HubConfig config = HubConfig::quiet();
    config.playback.file = file;
    config.playback.startWhenSubscriptions = startWhen;
    return config;
}

/// The next record that is no answer.
std::string nextUpdate(RawClient& client) {
    for (;;) {
        const std::optional<std::string> body = client.next();
        if (!body)
            throw std::runtime_error("the updates have stopped");
        if (findValue(*body, token::TAG).empty())
            return *body;
    }
}

TEST(Playback, EveryLineOfTheDayArrivesInOrderThoughReadersRest) {
    const std::vector<std::string> bodies = sampleBodies();
    HubConfig config = playbackConfig(TIVRA_SAMPLE_DAY, 8);
    config.outputLimit = 20000;
    StartedHub hub(config);
    LoggedIn fast(hub);
    LoggedIn slow(hub, true);
    for (LoggedIn* client : {&fast, &slow}) {
        for (const char* symbol : {"AIG", "BAC", "IBM", "SPY"})
            client->send(std::string("5022=Subscribe|4=100|5=") + symbol + "|5026=30");
    }
    // The day is longer than what the hub keeps and the sockets hold.
    std::size_t i = 0;
    for (; i < 1000; ++i)
        ASSERT_EQ(nextUpdate(fast), bodies[i]);
    for (const std::string& body : bodies)
        ASSERT_EQ(nextUpdate(slow), body);
    for (; i < bodies.size(); ++i)
        ASSERT_EQ(nextUpdate(fast), bodies[i]);
    ASSERT_TRUE(hub.waitForPlayback());
    const HubStatistics total = hub.statistics();
    EXPECT_EQ(total.playbackEvents, bodies.size());
    EXPECT_EQ(total.playbackSent, 2 * bodies.size());
    EXPECT_EQ(total.updatesSent, 2 * bodies.size());
    EXPECT_EQ(fast.next(20ms), std::nullopt);
}

TEST(Playback, LinesBecomeTheRecordsOfASymbolWhoseSnapshotsAndDepthHoldTheLastValues) {
    const std::string day = writeDay("tivra_sim_last.csv", "1000,NEW,Q,10.5,300,,,,,K,1,0\n"
                                                           "1001,NEW,Q,10.6,100,,,,,Q,1,0\n"
                                                           "1002.5,NEW,Q,,,10.7,200,,,K,1,0\n"
                                                           "1003,NEW,T,,,,,10.65,50,N,20,1\n");
    StartedHub hub(playbackConfig(day, 0));
    LoggedIn client(hub);
    client.ask("5022=Subscribe|4=100|5=NEW|5026=30");
    hub.startPlayback();
    ASSERT_TRUE(hub.waitForPlayback());
    for (const char* values : {"30=1|202=1381118401.000|101=10.5|102=300|105=K|106=1|115=0",
                               "30=2|202=1381118401.001|101=10.6|102=100|105=Q|106=1|115=0",
                               "30=3|202=1381118401.0025|103=10.7|104=200|105=K|106=1|115=0",
                               "30=4|203=1381118401.003|111=10.65|112=50|113=N|114=20|115=1"})
        EXPECT_EQ(nextUpdate(client), std::string("3=100|4=100|5=NEW|") + values);
    EXPECT_EQ(
        client.ask("5022=QuerySnap|4=100|5=NEW|5026=31").at(0),
        "5026=31|3=100|4=100|5=NEW|30=4|101=10.6|102=100|103=10.7|104=200|105=K|106=1|111=10.65|112=50|113=N|"
        "114=20|115=1|202=1381118401.0025|203=1381118401.003");
    const auto depth = client.ask("5022=QueryDepth|4=100|5=NEW|5026=32");
    ASSERT_EQ(depth.size(), 3U);
    EXPECT_THAT(depth[0], HasSubstr("|121=1|130=Q|105=Q|101=10.6|102=100"));
    EXPECT_THAT(depth[1], HasSubstr("|121=2|130=K|105=K|101=10.5|102=300|103=10.7|104=200"));
}

TEST(Playback, PaceFollowsTheDayTimesTheFactorInEachRoundUpToTheLimitOfEvents) {
    const std::string day = writeDay("tivra_sim_pace.csv", "1000,P,T,,,,,1,1,N,1,0\n3000,P,T,,,,,2,1,N,1,0\n"
                                                           "9000,P,T,,,,,3,1,N,1,0\n");
    HubConfig config = playbackConfig(day, 1);
    config.playback.factor = 20;
    config.playback.maxEvents = 2;
    config.playback.repeat = 3;
    StartedHub hub(config);
    LoggedIn client(hub);
    const auto begin = std::chrono::steady_clock::now();
    client.ask("5022=Subscribe|4=100|5=P|5026=30");
    for (int round = 0; round < 3; ++round) {
        EXPECT_THAT(nextUpdate(client), HasSubstr("|111=1|"));
        EXPECT_THAT(nextUpdate(client), HasSubstr("|111=2|"));
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(hub.statistics().playbackSent, 6U);
}

TEST(Playback, BodiesOfYourOwnGoOutUnchangedInTheirOrderAtTheirPace) {
    struct Body {
        double milliseconds;
        std::string body;
        bool isPlayed;
    };
    const std::vector<Body> bodies{
        {5000, "5=NEW|101=1.50|4=7|101=", true}, // a source that no configuration knows
        {5000, "5026=3|4=7|5=NEW|101=1", false}, {5000, "4=7|101=1", false},
        {5000, "4=99999999999|5=NEW", false},    {7000, "4=7|5=NEW|24=1|101=\xFF\x04", true},
        {6000, "4=7|5=NEW|101=2", true}};
    HubConfig config = playbackConfig("", 1);
    config.playback.factor = 20;
    config.playback.bodies = [&bodies, next = std::size_t{0}](TimedBody& message) mutable {
        if (next == bodies.size())
            return false;
        message.milliseconds = bodies[next].milliseconds;
        message.body = bodies[next++].body;
        return true;
    };
    StartedHub hub(config);
    LoggedIn client(hub);
    const auto begin = std::chrono::steady_clock::now();
    client.ask("5022=Subscribe|4=7|5=NEW|5026=30");
    for (const Body& body : bodies) {
        if (body.isPlayed) {
            EXPECT_EQ(nextUpdate(client), body.body);
        }
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(hub.statistics().playbackEvents, 3U);
    EXPECT_EQ(hub.statistics().playbackLeftOut, 3U);
    EXPECT_THAT(client.ask("5022=QuerySnap|4=7|5=NEW|5026=31").at(0), HasSubstr("|101=2"));
}

/// 20 symbols of 200,000 messages a second, of which a client may leave 100,000 bytes unread.
HubConfig loadConfig() {
    HubConfig config = playbackConfig("", 40);
    config.playback.load = {20, 200000.0, 50};
    config.playback.factor = 1.0;
    config.playback.repeat = 0;
    config.playback.dropsForSlow = true;
    config.outputLimit = 100000;
    return config;
}

TEST(Load, ASlowClientLosesWhatIsCountedAndHoldsUpNobody) {
    StartedHub hub(loadConfig());
    LoggedIn fast(hub);
    LoggedIn slow(hub);
    slow.ask("5022=Subscribe|4=922|5=.HUB.STATUS|5026=31");
    for (LoggedIn* client : {&slow, &fast})
        client->send("5022=Subscribe|4=100|5026=30");
    // One reads as fast as it can until the other has lost something.
    while (hub.statistics().playbackDropped < 100)
        ASSERT_FALSE(fast.readSome().empty());
    hub.stopPlayback();
    const HubStatistics total = hub.statistics();
    EXPECT_GE(total.slowClients, 1U);
    EXPECT_GT(total.playbackDroppedBytes, total.playbackDropped * 40);
    // The one that has lost hears how much.
    hub.pushHubStatus(0, 0);
    std::string body;
    while (body.find("5=.HUB.STATUS") == std::string::npos)
        body = nextUpdate(slow);
    EXPECT_GT(std::stoul(std::string(findValue(body, token::DROPPED_BYTES))), 0U) << body;
}

TEST(Load, RoundsFollowEachOtherAtTheRate) {
    HubConfig config = loadConfig();
    config.playback.startWhenSubscriptions = 1;
    config.playback.load.rate = 50000.0;
    config.outputLimit = 0;
    StartedHub hub(config);
    LoggedIn client(hub);
    const auto begin = std::chrono::steady_clock::now();
    client.send("5022=Subscribe|4=100|5026=30");
    // A round is a second's messages.
    while (hub.statistics().playbackEvents < 75000)
        ASSERT_FALSE(client.readSome().empty());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1450ms);
}

TEST(Playback, AFileThatIsNoTradingDayIsRefusedWithItsLine) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"1000,A,Q,1,1,,,,,K,1\n", ":2: a line must have 12 columns"},
        {"1000,A,Q,1,1,,,,,K,1,0,9\n", ":2: a line must have 12 columns"},
        {"1000,A,Q,1,1,,,,,K,1,0\n1001,A,X,1,1,,,,,K,1,0\n", ":3: the kind must be Q or T"},
        {"ten,A,Q,1,1,,,,,K,1,0\n", ":2: the milliseconds must be a number"},
        {"1000,A|B,Q,1,1,,,,,K,1,0\n", ":2: a symbol is missing or a value holds a separator"}};
    for (const auto& [lines, reason] : cases) {
        const std::string day = writeDay("tivra_sim_bad.csv", lines);
        EXPECT_THAT([&] { StartedHub{playbackConfig(day, 0)}; },
                    ThrowsMessage<std::runtime_error>(HasSubstr(day + reason)));
    }
    EXPECT_THROW(StartedHub{playbackConfig("/no/such/day.csv.gz", 0)}, std::runtime_error);
}

} // namespace
