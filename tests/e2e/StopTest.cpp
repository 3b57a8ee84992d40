// A stop ends in bounded time, whatever the session is doing.
#include "Client.h"

#include <atomic>
#include <chrono>
#include <future>
#include <iostream>

#include <gtest/gtest.h>
#include <tivra_sim/HubGroup.h>

#include "support/Ports.h"

using std::chrono::milliseconds;
using tivra::HostConfig;
using tivra_sim::Hub;
using tivra_sim::Record;

namespace {

// The threads look at their flags once a second at the least; the rest is for busy machines.
constexpr milliseconds LIMIT{IS_SANITIZED ? 9000 : 4000};

/// Stops, and tells how long that took beyond what a callback holds up.
void expectQuickStop(Client& client, const std::string& state, milliseconds heldUp = milliseconds(0)) {
    const milliseconds took = client.timedStop();
    std::cout << "stop " << state << ": " << took.count() << " ms" << std::endl;
    EXPECT_LT(took, LIMIT + heldUp);
    EXPECT_EQ(client.session().getState(), tivra::Session::TIVRA_SESSION_UNAVAILABLE);
}

/// What a test has broken is mended, and the session serves again.
void expectUsable(Client& client) {
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
}

std::future<std::string> startBehind(Client& client) {
    return std::async(std::launch::async, [&client] { return client.start(); });
}

class StopAtCommand : public testing::TestWithParam<const char*> {};

TEST_P(StopAtCommand, OfTheHandshake) {
    tivra_sim::HubGroup group;
    Hub& hub = group.hub(0);
    group.start();
    hub.ignore(GetParam());
    Client client(hub);
    auto started = startBehind(client);
    ASSERT_TRUE(hub.waitForCommand(GetParam()));
    expectQuickStop(client, std::string("at ") + GetParam());
    EXPECT_EQ(started.get(), "Session stopped before it was established");
    EXPECT_TRUE(hub.waitForConnections(0));
    hub.clearRefusals();
    expectUsable(client);
}

INSTANTIATE_TEST_SUITE_P(E2E, StopAtCommand,
                         testing::Values("LoginUser", "ListEnumeration", "SetConflationInterval",
                                         "ListAdministrationInfo", "SetConflationType", "ListInternalTokens",
                                         "GetPort", "ListSplitExchanges", "ListSystemPermission",
                                         "ListUserPermission", "Subscribe"),
                         [](const auto& row) { return std::string(row.param); });

TEST(Stop, WhileDialling) {
    const FullPort port;
    Client client(port.hostString());
    client.connections().set(HostConfig::CONNECTION_TIMEOUT_LONG, 600);
    auto started = startBehind(client);
    ASSERT_TRUE(client.waitForLog("Connecting to"));
    expectQuickStop(client, "while dialling");
    EXPECT_EQ(started.get(), "Session stopped before it was established");
}

TEST(Stop, WhileTheOnlyHubIsAway) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    hub.stop();
    ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
    expectQuickStop(client, "while the hub is away");
    hub.start();
    expectUsable(client);
}

TEST(Stop, DuringAFailover) {
    StartedHub primary;
    StartedHub backup;
    backup.ignore("ListInternalTokens");
    Client client(primary);
    client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    primary.stop();
    ASSERT_TRUE(backup.waitForCommand("ListInternalTokens"));
    expectQuickStop(client, "inside a failover");
    backup.clearRefusals();
    primary.start();
    expectUsable(client);

    backup.stop();
    ASSERT_TRUE(client.waitForLog("failover: Backup HUB disconnected"));
    expectQuickStop(client, "as a failover begins");
    backup.start();
    expectUsable(client);
}

TEST(Stop, DuringAReloadOfTheDictionary) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    hub.script([](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        if (request.command == "ListInternalTokens")
            return Hub::Frames{};
        if (request.command != "ListAdministrationInfo")
            return std::nullopt;
        return Hub::Frames{tivra_sim::encodeFrame("5026=" + std::to_string(request.tag) +
                                                  "|5080=20140101.1|5008=V8.2.1|5001=0")};
    });
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(client.waitForLog("Begin DIC reload"));
    ASSERT_TRUE(hub.waitForCommand("ListInternalTokens"));
    expectQuickStop(client, "inside a reload of the dictionary");
    hub.script(nullptr);
    expectUsable(client);
}

TEST(Stop, WhileACallbackIsBusyWaitsForItAndNoLonger) {
    constexpr milliseconds BUSY{1500};
    constexpr int WAITING = 1000;
    StartedHub hub;
    Client client(hub);
    std::promise<void> inside;
    std::promise<void> all;
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    client.messageHook = [&](const tivra::MessageEvent&) {
        if (++begun == 1) {
            inside.set_value();
            all.get_future().wait();
            std::this_thread::sleep_for(BUSY); // the application's work
        }
        ++ended;
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    inside.get_future().wait();
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    for (int i = 0; i < WAITING; ++i)
        hub.pushRecord(Record(100, "IBM").add(tivra_sim::token::BID, i));
    all.set_value();
    expectQuickStop(client, "with a callback that takes " + std::to_string(BUSY.count()) + " ms", BUSY);
    EXPECT_EQ(ended, begun) << "no callback runs after a stop";
    EXPECT_LT(begun, WAITING) << "nor is what waits delivered first";
}

} // namespace
