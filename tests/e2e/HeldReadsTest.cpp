// Reads that are held back while an answer is due, or always: nothing is lost, and a connection that ends is
// noticed. And what a slow reader is told where they are not.
#include "Client.h"

#include <tivra_testkit/Gate.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::Hub;
using Stats = tivra::StatisticsEvent;
namespace token = tivra_sim::token;

namespace {

/// A client with the smallest queue. Session events have a thread of their own, beside that of a callback.
struct HeldClient : Client {
    HeldClient(const Hub& hub, bool isCompressed) : Client(hub) {
        connections().set(HostConfig::QUEUE_SIZE_LONG, 1).set(HostConfig::COMPRESSION_BOOL, isCompressed);
        settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, true);
    }
    ~HeldClient() override {
        gate.open();
        destroySession();
    }
    HeldClient(const HeldClient&) = delete;
    HeldClient& operator=(const HeldClient&) = delete;

    tivra_testkit::Gate gate;
};

/// The seconds of processor time that the hub threads have taken.
double hubThreadSeconds() {
    double seconds = 0.0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        std::uint64_t nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        if (name.rfind("tivra-hub", 0) == 0)
            seconds += static_cast<double>(nanoseconds) / 1e9;
    }
    return seconds;
}

enum class Way { Plain, Compressed, Inline, Always };

class HeldReadsTest : public testing::TestWithParam<Way> {};

TEST_P(HeldReadsTest, NothingOfADayAtFullSpeedIsLost) {
    const bool isAlways = GetParam() == Way::Always; // else while an answer is due
    std::size_t count = 0;
    tivra_sim::readTradingDay(TIVRA_SAMPLE_DAY, [&](const tivra_sim::MarketEvent&) { return ++count > 0; });
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.playback.file = TIVRA_SAMPLE_DAY;
    config.playback.startWhenSubscriptions = 4;
    for (int round = 0; round < (IS_SANITIZED ? 2 : 10); ++round) {
        StartedHub hub(config);
        const auto [command, word] = round % 2 == 0
                                         ? std::pair(tivra::QUERYSNAP, "QuerySnap")
                                         : std::pair(tivra::LISTAVAILABLETOKENS, "ListAvailableTokens");
        hub.ignore(word);
        HeldClient client(hub, isAlways || GetParam() == Way::Compressed);
        client.settings()
            .set(tivra::SessionConfig::INLINE_CALLBACKS_BOOL, GetParam() == Way::Inline)
            .set(tivra::SessionConfig::HOLD_READS_BOOL, isAlways);
        std::atomic<std::size_t> received{0};
        std::atomic<bool> isInOrder{true};
        client.messageHook = [&](const tivra::MessageEvent& event) {
            tivra::MessageReader& reader = event.getReader();
            if (event.getType() != tivra::MessageEvent::UPDATE || reader.next() != token::SEQUENCE)
                return;
            isInOrder = isInOrder && static_cast<std::size_t>(reader.getValueAsInteger()) == ++received;
            if (received == count)
                client.notify();
        };
        ASSERT_TRUE(client.startAndWait());
        if (!isAlways)
            client.send(command, 100);
        ASSERT_TRUE(isAlways || hub.waitForCommand(word));
        for (const char* symbol : {"SPY", "AIG", "IBM", "BAC"})
            client.send(tivra::SUBSCRIBE, 100, symbol);
        ASSERT_TRUE(hub.waitForPlayback(std::chrono::seconds(150)));
        client.waitUntil([&] { return received == count || !isInOrder; });
        EXPECT_TRUE(isInOrder);
        EXPECT_EQ(hub.statistics().accepted, 1U);
        ASSERT_EQ(received, count) << "in round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(E2E, HeldReadsTest,
                         testing::Values(Way::Plain, Way::Compressed, Way::Inline, Way::Always),
                         [](const auto& test) {
                             return std::string(test.param == Way::Plain        ? "Plain"
                                                : test.param == Way::Compressed ? "Compressed"
                                                : test.param == Way::Inline     ? "Inline"
                                                                                : "Always");
                         });

class HeldLossTest : public testing::TestWithParam<Hub::Close> {};

/// The peer resets, or closes and answers the next request with a reset. Both leave bytes in a socket that
/// nobody reads at the time.
TEST_P(HeldLossTest, IsNoticedWithoutSpinningAndWhatHasComeIsStillDelivered) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.heartbeat.enabled = config.hubStatus.enabled = false; // the counts stand still in the end
    StartedHub hub(config);
    hub.ignore("QuerySnap");
    HeldClient client(hub, false);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 0);
    client.session().registerStatisticsEventHandler(&client, 1);
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() == tivra::MessageEvent::UPDATE)
            client.gate.wait();
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::QUERYSNAP, 100, "IBM");
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    for (int i = 0; i < 1'500; ++i)
        hub.pushRecord(tivra_sim::Record(100, "IBM").add(token::SEQUENCE, i).add(1, std::string(1'000, 'x')));
    ASSERT_TRUE(client.waitForSessionEvent("QUEUE_ABOVE"));

    const std::string logBefore = client.log();
    const double secondsBefore = hubThreadSeconds();
    const auto begin = std::chrono::steady_clock::now();
    hub.dropConnections(GetParam());
    if (GetParam() == Hub::Close::Orderly)
        client.send(tivra::SUBSCRIBE, 100, "BAC");
    EXPECT_TRUE(client.waitForSessionEvent("UNAVAILABLE")) << "while the application takes nothing";
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(hubThreadSeconds() - secondsBefore, 0.05 + elapsed.count() / 20) << "of " << elapsed.count();
    const std::string log = client.log().substr(logBefore.size());
    std::size_t warnings = 0;
    for (std::size_t at = log.find("WARN: "); at != std::string::npos; at = log.find("WARN: ", at + 1))
        ++warnings;
    EXPECT_LT(warnings, 5U) << log;

    client.gate.open();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    const std::size_t rows = client.waitForQuiet();
    ASSERT_GT(rows, 0U);
    const std::vector<std::uint64_t> last = client.statistics()[rows - 1];
    EXPECT_EQ(last[Stats::MSGS_IN], last[Stats::MSGS_OUT]) << "a whole frame has been thrown away";
    EXPECT_LT(last[Stats::DROP], 1'000U) << "more than the bytes of a frame that the loss has cut";
}

INSTANTIATE_TEST_SUITE_P(E2E, HeldLossTest, testing::Values(Hub::Close::Reset, Hub::Close::Orderly),
                         [](const auto& test) {
                             return std::string(test.param == Hub::Close::Reset ? "Reset" : "CloseAndSend");
                         });

class SlowReader : public testing::Test {
protected:
    /// Its callback ends when the gate is opened, and a queue's worth and a half has been sent to it.
    void begin(bool holdsReads) {
        client.settings().set(tivra::SessionConfig::HOLD_READS_BOOL, holdsReads);
        client.messageHook = [&](const tivra::MessageEvent& event) {
            if (event.getType() == tivra::MessageEvent::UPDATE)
                client.gate.wait(), ++received, client.notify();
        };
        ASSERT_TRUE(client.startAndWait());
        client.send(tivra::SUBSCRIBE, 100, "IBM");
        ASSERT_TRUE(hub.waitForSubscriptions(1));
        client.forget();
        hub.pushHubStatus(0, 100); // a hub that idles
        for (int i = 0; i < COUNT; ++i)
            hub.pushRecord(tivra_sim::Record(100, "IBM").add(1, std::string(1'000, 'x')));
    }

    static tivra_sim::HubConfig config() {
        tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
        config.heartbeat.interval = std::chrono::milliseconds(100); // so that a busy machine isn't silence
        return config;
    }

    static constexpr int COUNT = 1'500;
    StartedHub hub{config()};
    std::atomic<int> received{0};
    HeldClient client{hub, true};
};

/// The application is at a callback from before the queue passes its threshold until after the reset.
TEST_F(SlowReader, HearsOfItsQueueBeforeTheLossThatItCauses) {
    client.settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, false);
    begin(false);
    ASSERT_TRUE(client.waitForLog("=== Queue is full - Connection will be Reset ==="));
    client.gate.open();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    const std::vector<std::string> events = client.sessionEvents();
    EXPECT_EQ(events[0].substr(0, 11), "QUEUE_ABOVE");
    EXPECT_EQ(events[1], "UNAVAILABLE");
}

/// The heartbeats stand behind what waits.
TEST_F(SlowReader, IsWaitedForAndItsHubIsNotTakenForSilent) {
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 1);
    client.session().registerStatisticsEventHandler(&client, 1);
    begin(true);
    int seconds = 0;
    ASSERT_TRUE(client.waitForStatistics(Stats::DROP, [&](std::uint64_t) { return ++seconds > 3; }));
    client.gate.open();
    EXPECT_TRUE(client.waitUntil([&] { return received == COUNT; }));
    EXPECT_EQ(hub.statistics().accepted, 1U);
}

} // namespace
