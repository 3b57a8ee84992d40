// Streams of garbage, and a hub that vanishes in the middle of the handshake.
#include "Client.h"

#include <atomic>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::Hub;
using tivra_sim::Record;
namespace token = tivra_sim::token;
using namespace std::chrono_literals;

namespace {

/// What is no frame is no sign of life, and more of it than any fault of a line explains ends the connection.
TEST(GarbageStream, IsTakenForSilenceAndInMassForALoss) {
    for (const bool isCompressed : {false, true}) {
        tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
        config.heartbeat.enabled = config.hubStatus.enabled = false;
        StartedHub hub(config);
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

/// The connection is lost once at every step, closed and reset in turn, and the start goes on from there.
TEST(VanishingHub, IsDialledAgainAtEveryStepOfTheHandshake) {
    StartedHub hub;
    Client client(hub);
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

} // namespace
