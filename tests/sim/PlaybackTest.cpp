#include "RawClient.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using namespace tivra_sim;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// The lines of the sample day behind its header, read without the simulator.
std::vector<std::string> sampleLines() {
    std::string text;
    const gzFile file = gzopen(TIVRA_SAMPLE_DAY, "rb");
    std::array<char, 65536> bytes;
    for (int count = 0; (count = gzread(file, bytes.data(), bytes.size())) > 0;)
        text.append(bytes.data(), static_cast<std::size_t>(count));
    gzclose(file);
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    lines.erase(lines.begin());
    return lines;
}

std::string writeDay(const std::string& name, const std::string& lines) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path)
        << "ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious\n"
        << lines;
    return path;
}

/// A line of the file as the fields of a body, in the file's order.
std::string lineOf(const std::string& body) {
    const auto value = [&body](int token) { return std::string(findValue(body, token)); };
    const bool isTrade = !value(token::TRADE_DATETIME).empty();
    const std::string time = value(isTrade ? token::TRADE_DATETIME : token::QUOTE_DATETIME);
    const std::size_t point = time.find('.');
    const std::int64_t seconds = std::stoll(time.substr(0, point)) - Playback().midnight;
    return std::to_string(seconds * 1000 + std::stoll(time.substr(point + 1))) + "," + value(token::SYMBOL) +
           "," + (isTrade ? "T" : "Q") + "," + value(token::BID) + "," + value(token::BID_SIZE) + "," +
           value(token::ASK) + "," + value(token::ASK_SIZE) + "," + value(token::TRADE_PRICE) + "," +
           value(token::TRADE_SIZE) + "," + value(isTrade ? token::TRADE_EXCHANGE : token::QUOTE_EXCHANGE) +
           "," + value(isTrade ? token::TRADE_CONDITION : token::QUOTE_CONDITION) + "," +
           value(token::SUSPICIOUS);
}

HubConfig playbackConfig(const std::string& file, std::size_t startWhen) {
    HubConfig config = quietConfig();
    config.playback.file = file;
    config.playback.startWhenSubscriptions = startWhen;
    return config;
}

void subscribeAll(RawClient& client) {
    client.logIn();
    for (const char* symbol : {"AIG", "BAC", "IBM", "SPY"})
        client.send(std::string("5022=Subscribe|4=100|5=") + symbol + "|5026=30");
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

} // namespace

TEST(Playback, EveryLineOfTheDayArrivesInOrderAndUnchanged) {
    const std::vector<std::string> lines = sampleLines();
    Hub hub(playbackConfig(TIVRA_SAMPLE_DAY, 4));
    hub.start();
    RawClient client(hub);
    subscribeAll(client);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string body = nextUpdate(client);
        ASSERT_EQ(lineOf(body), lines[i]);
        ASSERT_EQ(findValue(body, token::SEQUENCE), std::to_string(i + 1));
    }
    ASSERT_TRUE(hub.waitForPlayback());
    const HubStatistics total = hub.statistics();
    EXPECT_EQ(total.playbackEvents, lines.size());
    EXPECT_EQ(total.playbackSent, lines.size());
    EXPECT_EQ(total.updatesSent, lines.size());
    EXPECT_EQ(client.next(20ms), std::nullopt);
}

TEST(Playback, AReaderThatRestsLosesNothingAndHoldsTheHubBack) {
    HubConfig config = playbackConfig(TIVRA_SAMPLE_DAY, 8);
    config.outputLimit = 20000;
    Hub hub(config);
    hub.start();
    RawClient fast(hub);
    RawClient slow(hub);
    subscribeAll(fast);
    subscribeAll(slow);
    // The sockets hold some megabytes, the day is read twice as far as they and the hub's limit reach.
    const std::size_t count = sampleLines().size();
    for (std::size_t i = 0; i < 1000; ++i)
        nextUpdate(fast);
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(findValue(nextUpdate(slow), token::SEQUENCE), std::to_string(i + 1));
    for (std::size_t i = 1000; i < count; ++i)
        ASSERT_EQ(findValue(nextUpdate(fast), token::SEQUENCE), std::to_string(i + 1));
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(hub.statistics().playbackSent, 2 * count);
}

TEST(Playback, SnapshotsAndDepthAnswerWithTheLastValues) {
    const std::string day = writeDay("tivra_sim_last.csv", "1000,NEW,Q,10.5,300,,,,,K,1,0\n"
                                                           "1001,NEW,Q,10.6,100,,,,,Q,1,0\n"
                                                           "1002.5,NEW,Q,,,10.7,200,,,K,1,0\n"
                                                           "1003,NEW,T,,,,,10.65,50,N,20,1\n");
    Hub hub(playbackConfig(day, 0));
    hub.start();
    RawClient client(hub);
    client.logIn();
    client.ask("5022=Subscribe|4=100|5=NEW|5026=30");
    hub.startPlayback();
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(nextUpdate(client),
              "3=100|4=100|5=NEW|30=1|202=1381118401.000|101=10.5|102=300|105=K|106=1|115=0");
    EXPECT_EQ(
        client.ask("5022=QuerySnap|4=100|5=NEW|5026=31").at(0),
        "5026=31|3=100|4=100|5=NEW|30=4|101=10.6|102=100|103=10.7|104=200|105=K|106=1|111=10.65|112=50|113=N|"
        "114=20|115=1|202=1381118401.0025|203=1381118401.003");
    const auto depth = client.ask("5022=QueryDepth|4=100|5=NEW|5026=32");
    ASSERT_EQ(depth.size(), 3U);
    EXPECT_THAT(depth[0], HasSubstr("|121=1|130=Q|105=Q|101=10.6|102=100"));
    EXPECT_THAT(depth[1], HasSubstr("|121=2|130=K|105=K|101=10.5|102=300|103=10.7|104=200"));
}

TEST(Playback, PaceFollowsTheDayTimesTheFactor) {
    const std::string day =
        writeDay("tivra_sim_pace.csv", "1000,P,T,,,,,1,1,N,1,0\n3000,P,T,,,,,2,1,N,1,0\n");
    HubConfig config = playbackConfig(day, 1);
    config.playback.factor = 20;
    Hub hub(config);
    hub.start();
    RawClient client(hub);
    client.logIn();
    const auto begin = std::chrono::steady_clock::now();
    client.ask("5022=Subscribe|4=100|5=P|5026=30");
    EXPECT_THAT(nextUpdate(client), HasSubstr("|111=1|"));
    EXPECT_THAT(nextUpdate(client), HasSubstr("|111=2|"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
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
    Hub hub(config);
    hub.start();
    RawClient client(hub);
    client.logIn();
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

TEST(Playback, RepeatAndLimitOfEvents) {
    HubConfig config = playbackConfig(TIVRA_SAMPLE_DAY, 4);
    config.playback.maxEvents = 100;
    config.playback.repeat = 3;
    Hub hub(config);
    hub.start();
    RawClient client(hub);
    subscribeAll(client);
    ASSERT_TRUE(hub.waitForPlayback());
    EXPECT_EQ(hub.statistics().playbackSent, 300U);
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
        try {
            Hub hub(playbackConfig(day, 0));
            hub.start();
            ADD_FAILURE() << lines << " was taken";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(day + reason));
        }
    }
    EXPECT_THROW(Hub(playbackConfig("/no/such/day.csv.gz", 0)).start(), std::runtime_error);
}
