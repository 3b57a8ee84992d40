// A real day through the whole data path, and what happens when the application is slower than the hub.
#include "Client.h"

#include <tivra_testkit/Gate.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::HubConfig;
namespace token = tivra_sim::token;

namespace {

constexpr std::size_t SYMBOLS = 4;

/// The bodies that the hub makes of a file's events, in order.
std::vector<std::string> bodiesOf(const std::string& file, std::size_t count) {
    std::vector<std::string> bodies;
    const std::int64_t midnight = tivra_sim::Playback().midnight;
    tivra_sim::readTradingDay(file, [&](const tivra_sim::MarketEvent& event) {
        bodies.push_back(tivra_sim::eventBody(event, 100, midnight, bodies.size() + 1));
        return bodies.size() < count;
    });
    return bodies;
}

HubConfig playing(const std::string& file, std::size_t count) {
    HubConfig config = HubConfig::realistic();
    config.playback.file = file;
    config.playback.maxEvents = count;
    config.playback.startWhenSubscriptions = SYMBOLS;
    return config;
}

bool isSameValue(const tivra::MessageReader& reader, std::string_view expected) {
    if (reader.getValueAsString() == expected)
        return true;
    // A number may be written in more ways than one.
    return reader.getValueType() != tivra::STRING &&
           reader.getValueAsDouble() == std::strtod(std::string(expected).c_str(), nullptr);
}

/// Holds a message against a body, pair by pair; gives what differs, or nothing.
std::string difference(const tivra::MessageEvent& event, const std::string& body) {
    tivra::MessageReader& reader = event.getReader();
    for (const tivra_sim::Pair& pair : tivra_sim::splitPairs(body)) {
        if (pair.token == token::SYMBOL && event.getSymbol() == pair.value)
            continue;
        if (pair.token == token::SOURCE && std::to_string(event.getSource()) == pair.value)
            continue;
        if (pair.token == token::PERMISSION && std::to_string(event.getPermission()) == pair.value)
            continue;
        if (reader.next() != pair.token || !isSameValue(reader, pair.value))
            return "token " + std::to_string(pair.token) + " of " + body + " came as " +
                   std::to_string(reader.getTokenNumber()) + "=" + reader.getValueAsString();
    }
    return reader.next() == tivra::MessageReader::END_OF_MESSAGE ? std::string() : "more than " + body;
}

void subscribeAll(Client& client) {
    for (const char* symbol : {"SPY", "AIG", "IBM", "BAC"})
        ASSERT_GE(client.send(tivra::SUBSCRIBE, 100, symbol), 18);
}

struct Day {
    const char* file;
    std::size_t count;
    bool isCompressed;
    bool isLazy = false;
};

std::ostream& operator<<(std::ostream& out, const Day& day) {
    return out << (day.isLazy ? "lazy" : day.isCompressed ? "compressed" : "plain") << day.count;
}

using Stats = tivra::StatisticsEvent;

/// The statistics of the time between two quiet moments, held against what the hub has sent and what the
/// application was told.
void expectCounted(const Client& client, std::size_t from, std::size_t to, std::uint64_t sent,
                   std::uint64_t told) {
    const RecordingApp::Statistics rows = client.statistics();
    const auto figure = [&](std::size_t row, Stats::StatsTypes type) { return rows[row][std::size_t(type)]; };
    const auto grown = [&](Stats::StatsTypes type) { return figure(to - 1, type) - figure(from - 1, type); };
    // Each event tells of one second.
    const auto summed = [&](Stats::StatsTypes type) {
        std::uint64_t sum = 0;
        for (std::size_t row = from; row < to; ++row)
            sum += figure(row, type);
        return sum;
    };
    EXPECT_EQ(grown(Stats::MSGS_IN), sent);
    EXPECT_EQ(grown(Stats::MSGS_OUT), sent);
    EXPECT_EQ(grown(Stats::NET_MSGS_OUT), told);
    EXPECT_EQ(summed(Stats::IN_MSGS_SEC), sent);
    EXPECT_EQ(summed(Stats::OUT_MSGS_SEC), sent);
    EXPECT_EQ(summed(Stats::NET_OUT_MSGS_SEC), told);
    EXPECT_EQ(figure(to - 1, Stats::DROP), 0U);
}

class DayTest : public testing::TestWithParam<Day> {};

TEST_P(DayTest, ArrivesFieldByFieldInOrderAndIsCounted) {
    if (!std::filesystem::exists(GetParam().file))
        GTEST_SKIP() << "the whole day is not at " << GetParam().file;
    const std::vector<std::string> bodies = bodiesOf(GetParam().file, GetParam().count);
    ASSERT_EQ(bodies.size(), GetParam().count);
    HubConfig config = playing(GetParam().file, GetParam().count);
    // Nothing but answers and the day, so that the counts of both sides stand still before and after it.
    config.heartbeat.enabled = config.hubStatus.enabled = false;
    StartedHub hub(config);
    Client client(hub);
    client.connections()
        .set(HostConfig::QUEUE_SIZE_LONG, 512)
        .set(HostConfig::READ_TIMEOUT_LONG, 0) // the hub has nothing to say after the day
        .set(HostConfig::COMPRESSION_BOOL, GetParam().isCompressed);
    client.settings().set(tivra::SessionConfig::LAZY_VALUES_BOOL, GetParam().isLazy);
    client.session().registerStatisticsEventHandler(&client, 0);
    std::atomic<std::size_t> told{0};
    std::atomic<std::size_t> received{0};
    std::string firstDifference; // written by the one user thread, read when all is over
    client.messageHook = [&](const tivra::MessageEvent& event) {
        ++told;
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        const std::size_t index = received.load();
        if (firstDifference.empty() && index < bodies.size())
            firstDifference = difference(event, bodies[index]);
        received = index + 1;
        if (index + 1 == bodies.size())
            client.notify();
    };
    ASSERT_TRUE(client.startAndWait());
    const std::size_t before = client.waitForQuiet();
    const std::uint64_t sentBefore = hub.statistics().framesSent;
    const std::uint64_t toldBefore = told;
    ASSERT_GT(before, 0U);
    subscribeAll(client);
    EXPECT_TRUE(hub.waitForPlayback(std::chrono::seconds(150)));
    EXPECT_TRUE(
        client.waitUntil([&] { return received.load() >= bodies.size(); }, std::chrono::seconds(150)));
    const std::size_t after = client.waitForQuiet();
    ASSERT_GT(after, 0U);
    expectCounted(client, before, after, hub.statistics().framesSent - sentBefore, told - toldBefore);
    client.session().stop();
    EXPECT_EQ(received.load(), bodies.size());
    EXPECT_EQ(firstDifference, "");
    EXPECT_EQ(hub.statistics().playbackSent, bodies.size());
}

#ifdef NDEBUG
constexpr bool IS_FAST = !IS_SANITIZED;
#else
constexpr bool IS_FAST = false;
#endif
/// All of the day takes a program that is built for speed.
constexpr std::size_t MUCH = IS_SANITIZED ? 40000 : IS_FAST ? 2054274 : 200000;
constexpr std::size_t SOME = IS_SANITIZED ? 20000 : 40000;

INSTANTIATE_TEST_SUITE_P(Sample, DayTest,
                         testing::Values(Day{TIVRA_SAMPLE_DAY, SOME, false},
                                         Day{TIVRA_SAMPLE_DAY, SOME, true},
                                         Day{TIVRA_SAMPLE_DAY, SOME, false, true}),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Whole, DayTest,
                         testing::Values(Day{TIVRA_WHOLE_DAY, MUCH, false}, Day{TIVRA_WHOLE_DAY, MUCH, true},
                                         Day{TIVRA_WHOLE_DAY, MUCH, false, true}),
                         testing::PrintToStringParamName());

class SlowCallback : public testing::TestWithParam<bool> {};

/// A callback that stands still makes the queue overflow. Of a plain stream what is lost is counted, and it
/// goes on; of a compressed one nothing can be left out, so that the connection is made anew. What arrives is
/// whole.
TEST_P(SlowCallback, LosesMessagesOrTheConnectionAndResynchronises) {
    const bool isCompressed = GetParam();
    const std::size_t count = 40000; // several times what the queue holds
    const std::vector<std::string> bodies = bodiesOf(TIVRA_SAMPLE_DAY, count);
    StartedHub hub(playing(TIVRA_SAMPLE_DAY, count));
    Client client(hub);
    client.connections()
        .set(HostConfig::READ_TIMEOUT_LONG, 0)
        .set(HostConfig::COMPRESSION_BOOL, isCompressed);
    client.settings()
        .set(tivra::SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG, 60)
        .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
        // Session events have a thread of their own, beside that of the callback.
        .set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, true);
    client.session().registerStatisticsEventHandler(&client, 1);
    tivra_testkit::Gate gate;
    std::atomic<std::size_t> received{0};
    std::atomic<bool> isLastSeen{false};
    std::string firstDifference;
    std::size_t lastSequence = 0;
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        gate.wait();
        tivra::MessageReader& reader = event.getReader();
        if (reader.peek() != token::SEQUENCE) {
            isLastSeen = true;
            return client.notify();
        }
        reader.next();
        const auto sequence = static_cast<std::size_t>(reader.getValueAsInteger());
        if (firstDifference.empty() && (sequence <= lastSequence || sequence > bodies.size()))
            firstDifference = "out of order: " + std::to_string(sequence);
        if (firstDifference.empty() &&
            event.getSymbol() != tivra_sim::findValue(bodies[sequence - 1], token::SYMBOL))
            firstDifference = bodies[sequence - 1];
        lastSequence = sequence;
        ++received;
    };
    ASSERT_TRUE(client.startAndWait());
    subscribeAll(client);
    if (isCompressed) {
        EXPECT_TRUE(client.waitForLog("=== Queue is full - Connection will be Reset ==="));
    } else {
        EXPECT_TRUE(hub.waitForPlayback(std::chrono::seconds(120)))
            << "a slow application does not hold the hub back";
        EXPECT_TRUE(client.waitForSessionEvent("QUEUE_ABOVE"));
    }
    gate.open();
    EXPECT_TRUE(client.waitUntil([&] {
        hub.pushRecord(tivra_sim::Record(100, "IBM").add(token::BID, "1"));
        return isLastSeen.load();
    }));
    EXPECT_GT(received.load(), 1000U);
    EXPECT_LT(received.load(), bodies.size());
    EXPECT_EQ(firstDifference, "");
    if (!isCompressed) {
        EXPECT_TRUE(client.waitForSessionEvent("QUEUE_BELOW"));
        EXPECT_TRUE(client.waitForStatistics(tivra::StatisticsEvent::DROP,
                                             [](std::uint64_t value) { return value > 0; }));
    }
    client.session().stop();
    EXPECT_EQ(hub.statistics().accepted > 1, isCompressed) << "a full queue costs no plain connection";
}

INSTANTIATE_TEST_SUITE_P(Sample, SlowCallback, testing::Bool(),
                         [](const auto& test) { return std::string(test.param ? "Compressed" : "Plain"); });

/// How many threads are asked for on either side; 0 for no threads of a hub's own.
class ThreadsTest : public testing::TestWithParam<int> {};

/// Two hubs: each one's messages come in order on one thread, and on as many threads as were asked for.
TEST_P(ThreadsTest, CallbacksOfTwoHubs) {
    StartedHub first(hubOf({100, 922}));
    StartedHub second(hubOf({101, 922}));
    Client client(Client::Options({first.hostString(), second.hostString()}));
    client.settings()
        .set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, GetParam() > 0)
        .set(tivra::SessionConfig::MAX_HUB_THREADS_LONG, GetParam())
        .set(tivra::SessionConfig::MAX_USER_THREADS_LONG, GetParam());
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 101, "IBM131221C185"), 0);
    client.forget();
    constexpr int COUNT = 500;
    for (int sequence = 1; sequence <= COUNT; ++sequence) {
        first.pushRecord(tivra_sim::Record(100, "IBM").add(token::SEQUENCE, sequence));
        second.pushRecord(tivra_sim::Record(101, "IBM131221C185").add(token::SEQUENCE, sequence));
    }
    ASSERT_TRUE(client.waitForUpdates(2 * COUNT));
    std::set<std::thread::id> threads;
    int next[2] = {1, 1};
    for (const SeenMessage& message : client.messages()) {
        threads.insert(message.thread);
        ASSERT_EQ(message.field(token::SEQUENCE), std::to_string(next[message.source - 100]++));
    }
    EXPECT_EQ(threads.size(), GetParam() == 2 ? 2U : 1U);
}

INSTANTIATE_TEST_SUITE_P(E2E, ThreadsTest, testing::Range(0, 3));

} // namespace
