// A session whose hubs come from a connection manager: what is asked of the manager, managers that fail or
// change their answers, hubs that are lost, a first hub that is only a door, and late cross-reference hubs.
#include "Client.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tivra_sim/HubGroup.h>
#include <tp/Clock.h>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using tivra::HostConfig;
using tivra_sim::GroupConfig;
using tivra_sim::Hub;
using tivra_sim::HubGroup;
using tivra_sim::Manager;
using tivra_sim::ManagerConfig;
using tivra_sim::Role;

namespace {

constexpr int SERVER_NOT_AVAILABLE = -9;
constexpr int NOT_ENTITLED = -11;
constexpr int NOT_ALL_XREF_HUBS = -225;

/// A group of three in these roles behind two managers, each of which the session may be sent to.
GroupConfig managedGroup(std::vector<Role> roles) {
    GroupConfig config = GroupConfig::realistic(3);
    config.splits.clear();
    for (std::size_t member = 0; member < 3; ++member)
        config.members[member].role = roles[member];
    for (const char* address : {"127.0.1.1", "127.0.1.2"}) {
        ManagerConfig manager;
        manager.address = address;
        manager.users = {{"demo", "demo"}};
        config.managers.push_back(manager);
    }
    return config;
}

class Managed : public testing::Test {
protected:
    explicit Managed(GroupConfig config = managedGroup({Role::Data, Role::Data, Role::Data}))
        : group(std::move(config)) {
        group.start();
        // What the double of the managers' library reads.
        ::setenv("TIVRA_SIM_MANAGER_PORT", std::to_string(group.manager().port()).c_str(), 1);
    }
    ~Managed() override {
        client.reset();
        tp::Clock::setReal();
    }
    /// Each by the manager and the member that it names.
    void makeClient(const std::vector<std::pair<std::size_t, std::size_t>>& hosts = {{0, 0}},
                    const std::string& password = "demo") {
        Client::Options options;
        options.password = password;
        for (const auto& [manager, member] : hosts)
            options.hosts.push_back(group.managedHostString(member, manager));
        client.reset(); // a process has one session
        client = std::make_unique<Client>(options);
    }
    void expectRegionAt(std::size_t member) {
        group.hub(member).clearRequests();
        EXPECT_EQ(client->ask(tivra::QUERYSNAP, 200 + int(member), "REGION" + std::to_string(member)), 0);
        EXPECT_THAT(group.hub(member).requestTexts(), Contains(HasSubstr("4=20" + std::to_string(member))));
    }
    Manager& manager(std::size_t index = 0) { return group.manager(index); }
    /// For what the library tells nobody of.
    static bool waitUntil(const std::function<bool()>& isTrue) {
        const auto end = std::chrono::steady_clock::now() + RecordingApp::LONG;
        while (!isTrue() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return isTrue();
    }

    HubGroup group;
    std::unique_ptr<Client> client;
};

/// One hub behind the manager, which knows of no others.
class LoneManaged : public Managed {
protected:
    LoneManaged() : Managed(managedGroup({Role::Data, Role::Door, Role::Door})) {}
};

TEST_F(LoneManaged, AHubIsFoundAndAnotherIsLookedForWhenItIsLost) {
    makeClient();
    client->settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    ASSERT_TRUE(client->startAndWait());
    EXPECT_THAT(manager().questions(), SizeIs(1));
    EXPECT_EQ(manager().questions()[0].hubPort, group.hub(0).port());
    EXPECT_EQ(manager().questions()[0].user, "demo");
    EXPECT_EQ(client->ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    ASSERT_TRUE(group.hub(0).waitForSubscriptions(1));

    // The manager sends it to another machine, where a hub serves the same port.
    tivra_sim::HubConfig config = group.hub(0).config();
    config.bindAddress = "127.0.0.2";
    config.port = group.hub(0).port();
    Hub other(config);
    other.start();
    manager().handOut(config.port, {"127.0.0.2"});
    manager().forget();
    group.hub(0).stop();
    ASSERT_TRUE(client->waitForSessionEvent("ESTABLISHED", 2));
    EXPECT_TRUE(other.waitForSubscriptions(1)) << "what stands is asked for again";
    EXPECT_THAT(manager().questions(), Each(Field(&Manager::Question::hubPort, config.port)));

    // Nor does it give up while the manager is away too.
    manager().stop();
    other.stop();
    group.hub(0).start();
    manager().handOut(config.port, {"127.0.0.9", "127.0.0.1"}); // the first of which is gone
    ASSERT_TRUE(client->waitForSessionEvent("UNAVAILABLE", 2));
    manager().start();
    ASSERT_TRUE(client->waitForSessionEvent("ESTABLISHED", 3));
    EXPECT_TRUE(group.hub(0).waitForSubscriptions(1));

    client->session().stop();
    client->forget();
    ASSERT_TRUE(client->startAndWait());
    EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
}

TEST_F(LoneManaged, RefusalsAndDisagreementsFailTheStartWithTheReason) {
    makeClient({{0, 0}}, "wrong");
    EXPECT_THAT(client->start(), HasSubstr("failed -7: LNKAPI_ERROR_WRONG_USERNAMEPASSWORD"));
    manager().answer(NOT_ENTITLED);
    EXPECT_THAT(client->start(), HasSubstr("failed -11: LNKAPI_ERROR_NOT_ENTITLED"));
    manager().answer(SERVER_NOT_AVAILABLE);
    client->connections().set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 2);
    manager().forget();
    EXPECT_THAT(client->start(), HasSubstr("failed -9: LNKAPI_ERROR_SERVER_NOT_AVAILABLE"));
    EXPECT_GE(manager().questions().size(), 2U) << "it is asked again first";
    manager().answer(0);
    makeClient({{0, 0}, {1, 0}}); // two managers where one has to be
    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_THAT(client->start(), HasSubstr("failed -99: PRIMARYBACKUP_CMIPPORT_ERROR"));
    EXPECT_EQ(group.hub(0).statistics().accepted, 0U);
}

TEST_F(LoneManaged, ASilentManagerHoldsUpAStopForOneTimeLimitAtTheMost) {
    makeClient();
    client->connections().set(HostConfig::CONNECTION_TIMEOUT_LONG, 2);
    manager().setSilent(true);
    auto started = std::async(std::launch::async, [this] { return client->start(); });
    ASSERT_TRUE(manager().waitForQuestions(1));
    EXPECT_LT(client->timedStop(), std::chrono::seconds(IS_SANITIZED ? 12 : 8));
    EXPECT_EQ(started.get(), "Session stopped before it was established");
}

/// Lost hubs of one thread ask one after the other, those of several threads wait for each other.
class ManagedByThreads : public Managed, public testing::WithParamInterface<bool> {
protected:
    std::size_t countLogged(const std::string& text) const {
        const std::string log = client->log();
        std::size_t count = 0;
        for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }
};

TEST_P(ManagedByThreads, AStopWaitsForOneOfManyQuestionsAtTheMost) {
    makeClient();
    client->settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, GetParam());
    client->connections().set(HostConfig::CONNECTION_TIMEOUT_LONG, 5); // all are lost within two
    ASSERT_TRUE(client->startAndWait());
    manager().setSilent(true);
    manager().forget();
    std::size_t asked = countLogged("asking 127.0.1.1");
    for (std::size_t member = 0; member < 3; ++member)
        group.hub(member).stop();
    ASSERT_TRUE(manager().waitForQuestions(1));
    asked += GetParam() ? 3U : 1U;
    ASSERT_TRUE(waitUntil([&] { return countLogged("asking 127.0.1.1") >= asked; }));
    EXPECT_LT(client->timedStop(), std::chrono::seconds(9));
    EXPECT_THAT(manager().questions(), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(E2E, ManagedByThreads, testing::Bool());

TEST_F(LoneManaged, ASessionOnItsBackupsSideStartsAgainToo) {
    makeClient();
    client->host(group.managedHostString(0, 1)).set(HostConfig::BACKUP_BOOL, true);
    for (const std::size_t index : {0U, 1U})
        manager(index).answer(NOT_ENTITLED);
    EXPECT_THAT(client->start(), HasSubstr("failed -11: LNKAPI_ERROR_NOT_ENTITLED"));
    EXPECT_THAT(client->log(), HasSubstr("initializing connection(s) to backup HUB"));
    for (const std::size_t index : {0U, 1U})
        manager(index).answer(0);
    for (int start = 0; start < 3; ++start) {
        EXPECT_EQ(client->start(), "Session started");
        EXPECT_EQ(client->ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        client->session().stop();
    }
    EXPECT_THAT(client->log(), Not(HasSubstr("differ in length"))) << "a hub is no configured host";
}

class BehindADoor : public Managed {
protected:
    BehindADoor() : Managed(doorConfig()) {}

private:
    static GroupConfig doorConfig() {
        GroupConfig config = managedGroup({Role::Door, Role::Data, Role::Data});
        config.members[0].hub.boxPermissions = {201, 922}; // a source that another hub offers too
        return config;
    }
};

TEST_F(BehindADoor, ItIsDroppedQuietlyAndNothingGoesThere) {
    makeClient();
    Hub& door = group.hub(0);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(client->startAndWait());
        // Also while the door is still open: what it got would be lost with it.
        door.clearRequests();
        expectRegionAt(1);
        EXPECT_EQ(client->ask(tivra::LISTUSERPERMISSION), 0);
        EXPECT_THAT(door.requestTexts(), IsEmpty());
        ASSERT_TRUE(door.waitForConnections(0));
        expectRegionAt(1);
        expectRegionAt(2);
        const std::int64_t places = client->send(tivra::GETSOURCEPORTDETAILS);
        ASSERT_TRUE(client->waitForEnd(places));
        for (const SeenMessage& place : client->messagesOf(places))
            EXPECT_NE(place.field(13101), std::to_string(door.port())) << place.source;
        EXPECT_EQ(client->session().getState(), tivra::Session::TIVRA_SESSION_ESTABLISHED);
        EXPECT_THAT(client->sessionEvents(), Not(Contains("RECOVERY")));
        client->session().stop();
        client->forget();
    }
}

class WithCrossReferences : public Managed {
protected:
    WithCrossReferences() : Managed(managedGroup({Role::Data, Role::Data, Role::Xref})) { makeClient(); }
};

TEST_F(WithCrossReferences, AHubThatAnotherFirstHubHasLedToIsConnectedOnce) {
    // Two kinds of hubs, each of which knows of itself alone but lists the ports of all.
    for (const std::size_t member : {0U, 1U})
        group.hub(member).script(
            [this, member](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
                if (request.command != "GetAllPorts")
                    return std::nullopt;
                return Hub::Frames{tivra_sim::encodeFrame(
                    "5026=15|13101=" + std::to_string(group.hub(member).port()) + "|5001=0")};
            });
    makeClient({{0, 0}, {0, 1}});
    ASSERT_TRUE(client->startAndWait());
    EXPECT_NE(client->ask(tivra::QUERYXREF, 0, "IBM"), Client::NO_ANSWER);
    for (std::size_t member = 0; member < 3; ++member)
        EXPECT_EQ(group.hub(member).statistics().connections, 1U) << member;
}

TEST_F(WithCrossReferences, OneThatRefusedTheLoginIsDialledAgainByALaterAttempt) {
    client->connections().set(HostConfig::READ_TIMEOUT_LONG, 0L); // the clock will jump
    Hub& late = group.hub(2);
    late.refuseLogin(tivra_sim::status::DENY_LOGIN);
    ASSERT_TRUE(client->startAndWait());
    EXPECT_EQ(client->ask(tivra::QUERYXREF, 0, "IBM"), NOT_ALL_XREF_HUBS);
    late.clearRefusals();
    ASSERT_TRUE(waitUntil([&] { return client->user().getState() == tivra::UserInfo::AUTHENTICATED; }))
        << "its thread has let go of it";
    tp::Clock::advance(31.0);
    EXPECT_NE(client->ask(tivra::QUERYXREF, 0, "IBM"), NOT_ALL_XREF_HUBS);
    EXPECT_EQ(late.statistics().loggedIn, 1U);
}

class WithTwoCrossReferences : public Managed {
protected:
    WithTwoCrossReferences() : Managed(managedGroup({Role::Data, Role::Xref, Role::Xref})) {}
};

TEST_F(WithTwoCrossReferences, OneThatCameUpIsDialledForEverThoughTheOtherFailed) {
    makeClient();
    group.hub(2).stop();
    ASSERT_TRUE(client->startAndWait());
    EXPECT_NE(client->ask(tivra::QUERYXREF, 0, "IBM"), Client::NO_ANSWER);
    EXPECT_THAT(client->log(), HasSubstr("Removing the xrefHUB - "));
    ASSERT_TRUE(group.hub(1).waitForConnections(1));
    client->forget();
    const auto refused = manager().questions().size();
    group.hub(1).stop();
    ASSERT_TRUE(client->waitForSessionEvent("RECOVERY"));
    // A dial that fails asks the manager for another hub.
    ASSERT_TRUE(manager().waitForQuestions(refused + 2));
    EXPECT_EQ(client->session().getState(), tivra::Session::TIVRA_SESSION_RECOVERY);
    group.hub(1).start();
    ASSERT_TRUE(client->waitForSessionEvent("ESTABLISHED"));
    EXPECT_TRUE(group.hub(1).waitForConnections(1));
}

TEST_F(WithCrossReferences, AGrantedSourceConnectsTheHubThatCarriesIt) {
    ASSERT_TRUE(client->startAndWait());
    client->forget();
    group.carry(555, {2});
    group.hub(2).pushRecord(tivra_sim::Record(555, "NEW").add(101, "1"));
    EXPECT_EQ(group.hub(2).statistics().connections, 0U);
    group.grant("demo", 555);
    ASSERT_TRUE(client->waitForSessionEvent("SOURCE_ADDED 555"));
    EXPECT_EQ(client->ask(tivra::QUERYSNAP, 555, "NEW"), 0);
    EXPECT_THAT(group.hub(2).requestTexts(), Contains(HasSubstr("5022=QuerySnap|4=555|5=NEW")));
    EXPECT_THAT(client->sessionEvents(), Not(Contains("RECOVERY")));
}

TEST_F(WithCrossReferences, AStopEndsTheWaitForThem) {
    ASSERT_TRUE(client->startAndWait());
    group.hub(2).setSilent(true);
    client->send(tivra::QUERYXREF, 0, "IBM");
    ASSERT_TRUE(group.hub(2).waitForCommand("LoginUser"));
    EXPECT_LT(client->timedStop(), std::chrono::seconds(IS_SANITIZED ? 8 : 4));
    group.hub(2).setSilent(false);
    client->forget();
    ASSERT_TRUE(client->startAndWait());
    expectRegionAt(0);
}

} // namespace
