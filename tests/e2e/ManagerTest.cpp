// A session whose hubs come from a connection manager: what is asked of the manager, hubs that are lost, a
// first hub that is only a door, and cross-reference hubs that are connected late.
#include "Client.h"

#include <cstdio>
#include <memory>
#include <mutex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LnkDouble.h"

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tivra_sim::encodeFrame;

namespace {

constexpr const char* MANAGER = "127.0.1.1";
constexpr int WRONG_PASSWORD = -7;
constexpr int OUT_OF_REACH = -114;

/// The one manager of the process. It hands out the loopback address for every port.
class Manager {
public:
    Manager() {
        tell(0);
        lnkDoubleAnswerBy(&Manager::answer, 0);
    }
    /// The status of every look-up from now on; what has been asked is forgotten.
    void tell(int status) {
        const std::lock_guard lock(s_mutex);
        s_status = status;
        s_asked.clear();
    }
    std::vector<std::string> asked() const {
        const std::lock_guard lock(s_mutex);
        return s_asked;
    }

private:
    static int answer(const char* managerAddr, const char*, const char*, char* out, int size) {
        const std::lock_guard lock(s_mutex);
        s_asked.emplace_back(managerAddr);
        if (s_status == 0)
            std::snprintf(out, static_cast<std::size_t>(size), "127.0.0.1");
        return s_status;
    }

    static inline std::mutex s_mutex;
    static inline int s_status = 0;
    static inline std::vector<std::string> s_asked;
};

std::string managedHost(const tivra_sim::Hub& hub) {
    return MANAGER + (':' + std::to_string(hub.port()));
}

/// Makes a hub answer the questions for the data ports of its group and for those of cross references.
void tellPorts(tivra_sim::Hub& hub, const std::vector<std::uint16_t>& data,
               const std::vector<std::uint16_t>& xref = {}) {
    const auto answerOf = [](int tag, const std::vector<std::uint16_t>& ports) {
        std::string body = "5026=" + std::to_string(tag) + "|13001=127.0.0.1";
        for (const std::uint16_t port : ports)
            body += "|13101=" + std::to_string(port);
        return encodeFrame(body + "|5001=0");
    };
    hub.script([all = answerOf(15, data), check = answerOf(7, xref)](
                   const tivra_sim::Request& request) -> std::optional<tivra_sim::Hub::Frames> {
        if (request.command == "GetAllPorts")
            return tivra_sim::Hub::Frames{all};
        if (request.command == "GetPort" && request.tag == 7)
            return tivra_sim::Hub::Frames{check};
        return std::nullopt;
    });
}

TEST(Managed, ALoneHubIsFoundAndLooksForAnotherWhenItIsLost) {
    Manager manager;
    StartedHub hub;
    Client client{Client::Options({managedHost(hub)})};
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    EXPECT_THAT(manager.asked(), testing::ElementsAre(managedHost(hub)));
    EXPECT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    ASSERT_TRUE(hub.waitForSubscriptions(1));

    hub.restart();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    EXPECT_GE(manager.asked().size(), 2U);
    EXPECT_TRUE(hub.waitForSubscriptions(1)) << "what stands is asked for again";

    client.session().stop();
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
}

TEST(Managed, ARefusedUserAndHostsThatDisagreeFailTheStartWithTheReason) {
    Manager manager;
    manager.tell(WRONG_PASSWORD);
    StartedHub hub;
    Client client{Client::Options({managedHost(hub)})};
    EXPECT_THAT(client.start(), HasSubstr("failed -7: LNKAPI_ERROR_WRONG_USERNAMEPASSWORD"));
    client.connections().getHostConfig("127.0.1.2:" + std::to_string(hub.port()));
    manager.tell(0);
    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_THAT(client.start(), HasSubstr("failed -99: PRIMARYBACKUP_CMIPPORT_ERROR"));
    EXPECT_EQ(hub.statistics().connections, 0U);
}

TEST(Managed, AManagerThatWasOutOfReachIsAskedAgainByTheNextStart) {
    Manager manager;
    manager.tell(OUT_OF_REACH);
    StartedHub hub;
    Client client{Client::Options({managedHost(hub)})};
    client.host(managedHost(hub)).set(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, 0L);
    EXPECT_THAT(client.start(), HasSubstr("Connection retry limit exceeded for ")) << "the manager is no hub";
    manager.tell(0);
    EXPECT_TRUE(client.startAndWait());
}

/// Behind the manager: a hub that is configured, and two more that it tells of.
class ManagedGroup : public testing::Test {
protected:
    ManagedGroup() {
        tivra_sim::HubConfig config = hubOf({100, 101, 922});
        config.boxPermissions = {101, 922}; // a source that another hub offers too
        door = std::make_unique<StartedHub>(config);
    }
    void makeClient() { client = std::make_unique<Client>(Client::Options({managedHost(*door)})); }
    void expectEachSourceAtItsHub() {
        first.clearRequests();
        second.clearRequests();
        EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        EXPECT_EQ(client->ask(tivra::QUERYSNAP, 101, "IBM131221C185"), 0);
        EXPECT_THAT(first.requestTexts(), Contains(HasSubstr("4=100|")));
        EXPECT_THAT(second.requestTexts(), Contains(HasSubstr("4=101|")));
    }

    Manager manager;
    std::unique_ptr<StartedHub> door;
    StartedHub first{hubOf({100, 922})};
    StartedHub second{hubOf({101, 922})};
    std::unique_ptr<Client> client;
};

TEST_F(ManagedGroup, AFirstHubThatIsOnlyADoorIsDroppedQuietly) {
    tellPorts(*door, {first.port(), second.port()});
    makeClient();
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(client->startAndWait());
        // Also while the door is still open: what it got would be lost with it.
        door->clearRequests();
        expectEachSourceAtItsHub();
        EXPECT_EQ(client->ask(tivra::LISTUSERPERMISSION), 0);
        EXPECT_THAT(door->requestTexts(), IsEmpty());
        ASSERT_TRUE(door->waitForConnections(0));
        expectEachSourceAtItsHub();
        EXPECT_EQ(client->session().getState(), tivra::Session::TIVRA_SESSION_ESTABLISHED);
        EXPECT_THAT(client->sessionEvents(), Not(Contains("RECOVERY")));
        client->session().stop();
        client->forget();
    }
}

TEST_F(ManagedGroup, AMemberThatListsItselfStays) {
    tellPorts(*door, {door->port(), first.port(), second.port(), first.port()});
    makeClient();
    ASSERT_TRUE(client->startAndWait());
    EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_EQ(door->statistics().connections, 1U);
    EXPECT_THAT(manager.asked(), Each(HasSubstr(MANAGER)));
    EXPECT_EQ(manager.asked().size(), 3U);
}

TEST_F(ManagedGroup, CrossReferenceHubsAreConnectedAtTheFirstNeed) {
    tellPorts(*door, {door->port(), first.port()}, {second.port()});
    makeClient();
    ASSERT_TRUE(client->startAndWait());
    EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_EQ(second.statistics().connections, 0U);
    client->forget();
    EXPECT_NE(client->ask(tivra::QUERYXREF, 0, "IBM"), Client::NO_ANSWER);
    const std::vector<const tivra_sim::Hub*> hubs{door.get(), &first, &second};
    for (const tivra_sim::Hub* hub : hubs)
        EXPECT_THAT(hub->requestTexts(), Contains(HasSubstr("5022=QueryXRef")));
    EXPECT_THAT(client->sessionEvents(), IsEmpty()) << "their coming up is no loss";
}

TEST_F(ManagedGroup, ACrossReferenceHubThatFailsIsLeftOut) {
    second.stop();
    tellPorts(*door, {door->port(), first.port()}, {second.port()});
    makeClient();
    ASSERT_TRUE(client->startAndWait());
    client->forget();
    EXPECT_NE(client->ask(tivra::QUERYXREF, 0, "IBM"), Client::NO_ANSWER);
    EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_THAT(client->log(), HasSubstr("Removing the xrefHUB - "));
    EXPECT_THAT(client->sessionEvents(), IsEmpty());
    EXPECT_EQ(client->session().getState(), tivra::Session::TIVRA_SESSION_ESTABLISHED);
}

TEST_F(ManagedGroup, UnreadableListsOfPortsFailTheStartWithinItsLimits) {
    door->script([](const tivra_sim::Request& request) -> std::optional<tivra_sim::Hub::Frames> {
        if (request.command != "GetAllPorts")
            return std::nullopt;
        return tivra_sim::Hub::Frames{encodeFrame("5026=15|13101=0|13101=65536")};
    });
    makeClient();
    client->host(managedHost(*door)).set(tivra::HostConfig::READ_TIMEOUT_LONG, 1L);
    client->host(managedHost(*door)).set(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, 1L);
    EXPECT_THAT(client->start(), HasSubstr("Read timeout waiting for response"));
}

} // namespace
