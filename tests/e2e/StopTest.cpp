// A stop ends in bounded time, whatever the session is doing.
#include "Client.h"

#include <atomic>
#include <chrono>
#include <future>
#include <iostream>
#include <memory>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <tivra_sim/HubGroup.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using tivra::HostConfig;
using tivra_sim::Hub;
using tivra_sim::Record;

namespace {

// The threads look at their flags once a second at the least; the rest is for busy machines.
constexpr milliseconds LIMIT{IS_SANITIZED ? 6000 : 3000};

/// Stops, and tells how long that took beyond what a callback holds up.
void expectQuickStop(Client& client, const std::string& state, milliseconds heldUp = milliseconds(0)) {
    const auto begin = steady_clock::now();
    EXPECT_TRUE(client.session().stop());
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
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

TEST_P(StopAtCommand, OfTheConversation) {
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

/// A port whose queue of connections is full, so that one more is neither taken nor refused.
class FullPort {
public:
    FullPort() {
        m_place.sin_family = AF_INET;
        m_place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* generic = reinterpret_cast<sockaddr*>(&m_place);
        socklen_t length = sizeof m_place;
        EXPECT_EQ(::bind(m_sockets[0], generic, length), 0);
        EXPECT_EQ(::listen(m_sockets[0], 0), 0);
        ::getsockname(m_sockets[0], generic, &length);
        for (std::size_t i = 1; i < std::size(m_sockets); ++i)
            ::connect(m_sockets[i], generic, length);
    }
    ~FullPort() {
        for (const int socket : m_sockets)
            ::close(socket);
    }
    FullPort(const FullPort&) = delete;
    FullPort& operator=(const FullPort&) = delete;

    [[nodiscard]] std::string hostString() const {
        return "127.0.0.1:" + std::to_string(ntohs(m_place.sin_port));
    }

private:
    static int made() { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

    sockaddr_in m_place{};
    int m_sockets[4]{made(), made(), made(), made()};
};

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
    ASSERT_TRUE(client.waitForLog("Begin failover"));
    expectQuickStop(client, "as a failover begins");
    primary.start();
    expectUsable(client);

    backup.clearRequests();
    primary.stop();
    ASSERT_TRUE(backup.waitForCommand("ListInternalTokens"));
    expectQuickStop(client, "inside a failover");
    backup.clearRefusals();
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
    StartedHub hub;
    Client client(hub);
    std::promise<void> inside;
    std::atomic<bool> isFirst{true};
    client.messageHook = [&](const tivra::MessageEvent&) {
        if (!isFirst.exchange(false))
            return;
        inside.set_value();
        std::this_thread::sleep_for(BUSY); // the application's work
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    inside.get_future().wait();
    // What is waiting behind the callback is not delivered first.
    for (int i = 0; i < 1000; ++i)
        hub.pushRecord(Record(100, "IBM").add(tivra_sim::token::BID, i));
    expectQuickStop(client, "with a callback that takes " + std::to_string(BUSY.count()) + " ms", BUSY);
}

TEST(Stop, InTheMiddleOfAStream) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    std::atomic<bool> mustEnd{false};
    std::thread stream([&] {
        while (!mustEnd)
            hub.pushRecord(Record(100, "IBM").add(tivra_sim::token::BID, 1));
    });
    ASSERT_TRUE(client.waitForUpdates(1000));
    expectQuickStop(client, "in the middle of a stream");
    mustEnd = true;
    stream.join();
}

} // namespace
