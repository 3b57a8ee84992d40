// A hub that merges updates for a subscriber who is behind.
#include "Client.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

using std::chrono::microseconds;
using tivra::HostConfig;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

// How far behind the reader stays: about a third of its queue.
constexpr int BEHIND = 1500;

class JustInTime : public testing::TestWithParam<long> {};

TEST_P(JustInTime, ASlowReaderIsSparedUntilItHasCaughtUp) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.conflation = true;
    StartedHub hub(config);
    Client client(hub);
    client.connections().set(HostConfig::CONFLATION_TYPE_LONG, GetParam());
    client.connections().set(HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG, 10);
    client.connections().set(HostConfig::CONFLATION_INTERVAL_LONG, 100);
    // The fullest moment that is reported is that of the running interval of the statistics.
    client.session().registerStatisticsEventHandler(&client, 1);
    std::atomic<bool> isSlow{true};
    std::atomic<int> number{0}; // of the next update
    std::atomic<bool> isMerged{false};
    std::atomic<int> last{-1};
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        const int bid = std::stoi(SeenMessage(event).field(token::BID));
        while (isSlow && number < bid + BEHIND)
            std::this_thread::sleep_for(microseconds(100)); // an application that takes its time
        EXPECT_GT(bid, last);
        if (bid > last + 1)
            isMerged = true;
        last = bid;
        client.notify();
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    const auto publish = [&] {
        hub.pushRecord(Record(100, "IBM").add(token::BID, number++).add(9999, std::string(200, 'x')));
        std::this_thread::sleep_for(microseconds(50)); // the pace of the data
    };
    const auto hasEvent = [&](const char* event) {
        const std::vector<std::string> events = client.sessionEvents();
        return std::find(events.begin(), events.end(), event) != events.end();
    };
    const auto end = std::chrono::steady_clock::now() + Client::LONG;
    while (!hasEvent("JIT_START") && std::chrono::steady_clock::now() < end)
        publish();
    EXPECT_TRUE(hasEvent("JIT_START"));
    while (!isMerged && std::chrono::steady_clock::now() < end)
        publish();
    EXPECT_TRUE(isMerged);
    isSlow = false;
    EXPECT_TRUE(client.waitForSessionEvent("JIT_STOP"));
    EXPECT_TRUE(client.waitUntil([&] { return last == number - 1; })) << "the last value arrives";
    EXPECT_EQ(hub.statistics().accepted, 1U);
}

INSTANTIATE_TEST_SUITE_P(E2E, JustInTime, testing::Values(3L, 4L));

} // namespace
