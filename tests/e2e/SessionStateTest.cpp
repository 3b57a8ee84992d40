// States and events of a session from start to stop, through losses, and the calls that are refused.
#include "Client.h"

#include <atomic>
#include <future>
#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/RefusedThreads.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsSupersetOf;
using tivra::HostConfig;
using tivra::Session;
using tivra_sim::Hub;

namespace {

TEST(SessionState, StopAndRestartGoThroughTheSameEvents) {
    StartedHub hub;
    Client client(hub);
    const std::int64_t early = client.send(tivra::QUERYSNAP, 100, "IBM");
    EXPECT_GE(early, 18) << "a request may be sent before the start";
    ASSERT_TRUE(client.startAndWait());
    ASSERT_TRUE(client.waitForEnd(early));
    EXPECT_EQ(client.messagesOf(early).back().status, 0);
    EXPECT_EQ(client.start(), "Session has already been started; ignoring start request");
    EXPECT_TRUE(client.isStarted);
    const std::vector<std::string> events = client.sessionEvents();

    EXPECT_TRUE(client.session().stop());
    EXPECT_EQ(client.session().getState(), Session::TIVRA_SESSION_UNAVAILABLE);
    EXPECT_EQ(client.user().getState(), tivra::UserInfo::NOT_AUTHENTICATED);
    EXPECT_TRUE(hub.waitForConnections(0));
    EXPECT_TRUE(client.session().stop()) << "a second stop does nothing";
    EXPECT_EQ(client.sessionEvents(), events) << "a stop is no event";
    const std::int64_t between = client.send(tivra::QUERYSNAP, 100, "BAC");
    EXPECT_GE(between, 18);

    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.sessionEvents(), events);
    ASSERT_TRUE(client.waitForEnd(between));
    EXPECT_EQ(client.messagesOf(between).front().symbol, "BAC");
}

TEST(SessionState, OneOfTwoHubsIsLostAndComesBack) {
    StartedHub first(hubOf({100, 922}));
    StartedHub second(hubOf({101, 922, 4100}));
    Client client(Client::Options({first.hostString(), second.hostString()}));
    client.session().registerStatisticsEventHandler(&client, 1);
    const std::int64_t early = client.send(tivra::QUERYSNAP, 101, "IBM131221C185");
    ASSERT_TRUE(client.startAndWait());
    ASSERT_TRUE(client.waitForEnd(early));
    EXPECT_EQ(client.messagesOf(early).back().status, 0) << "it waits until its source has a hub";
    EXPECT_THAT(client.sessionEvents(),
                IsSupersetOf({"AVAILABLE_ALLSOURCES 100", "AVAILABLE_ALLSOURCES 101",
                              "AVAILABLE_ALLSOURCES 922", "AVAILABLE_ALLSOURCES 4100"}));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 101, "IBM131221C185"), 0);
    second.pushHubStatus(7, 0);
    const auto hubDropIs = [](std::uint64_t wanted) {
        return [wanted](std::uint64_t value) { return value == wanted; };
    };
    EXPECT_TRUE(client.waitForStatistics(tivra::StatisticsEvent::HUB_DROP, hubDropIs(7)));
    client.forget();

    second.setAccepting(false);
    second.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("RECOVERY_SOURCES 4100"));
    EXPECT_THAT(client.sessionEvents(),
                ElementsAre("RECOVERY", "RECOVERY_SOURCES 101", "RECOVERY_SOURCES 4100"));
    EXPECT_EQ(client.session().getState(), Session::TIVRA_SESSION_RECOVERY);
    EXPECT_TRUE(client.waitForStatistics(tivra::StatisticsEvent::HUB_DROP, hubDropIs(0)))
        << "a hub that is away contributes nothing";
    EXPECT_EQ(client.user().getState(), tivra::UserInfo::PARTIALLY_AUTHENTICATED);
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0) << "the other hub serves on";
    const std::int64_t held = client.send(tivra::QUERYSNAP, 101, "IBM131221C185");
    client.forget();

    second.setAccepting(true);
    ASSERT_TRUE(client.waitForSessionEvent("AVAILABLE_SOURCES 4100"));
    EXPECT_THAT(client.sessionEvents(),
                ElementsAre("ESTABLISHED", "AVAILABLE_SOURCES 101", "AVAILABLE_SOURCES 4100"));
    ASSERT_TRUE(client.waitForEnd(held)) << "a request sent during the loss waits for the hub";
    EXPECT_EQ(client.messagesOf(held).back().status, 0);
    EXPECT_EQ(client.user().getState(), tivra::UserInfo::AUTHENTICATED);
    client.forget();

    first.setAccepting(false);
    first.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("RECOVERY_SOURCES 922"));
    EXPECT_THAT(client.sessionEvents(),
                ElementsAre("RECOVERY", "RECOVERY_SOURCES 100", "RECOVERY_SOURCES 922"))
        << "the one that is back is not lost again";
}

TEST(SessionState, TheOnlyHubIsLostSilentlyAndComesBack) {
    StartedHub hub;
    Client client(hub);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 2);
    ASSERT_TRUE(client.startAndWait());
    const std::vector<std::string> up{"AVAILABLE_ALLSOURCES 100", "AVAILABLE_ALLSOURCES 101",
                                      "AVAILABLE_ALLSOURCES 922", "AVAILABLE_ALLSOURCES 4100", "ESTABLISHED"};
    client.forget();
    hub.setSilent(true); // the connection stands, heartbeats stop
    ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
    EXPECT_EQ(client.session().getState(), Session::TIVRA_SESSION_UNAVAILABLE);
    hub.setSilent(false);
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    std::vector<std::string> events = client.sessionEvents();
    EXPECT_EQ(events.front(), "UNAVAILABLE");
    events.erase(events.begin());
    EXPECT_THAT(events, ElementsAreArray(up));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
}

TEST(SessionState, RecordsOfTheHubBecomeEvents) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    client.forget();
    hub.pushJit(3);
    hub.pushJit(3); // the same again is no news
    EXPECT_TRUE(client.waitForSessionEvent("JIT_START"));
    hub.pushJit(0);
    EXPECT_TRUE(client.waitForSessionEvent("JIT_STOP"));
    hub.withdrawSource(101);
    EXPECT_TRUE(client.waitForSessionEvent("SOURCE_REMOVED 101"));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 101, "IBM131221C185"), tivra_sim::status::NO_PERMISSION);
    hub.grantSource(101);
    EXPECT_TRUE(client.waitForSessionEvent("SOURCE_ADDED 101"));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 101, "IBM131221C185"), 0);
    EXPECT_THAT(client.sessionEvents(),
                ElementsAre("JIT_START", "JIT_STOP", "SOURCE_REMOVED 101", "SOURCE_ADDED 101"));
    EXPECT_THAT(client.messages(), testing::SizeIs(3)) << "such records never reach the application";
}

TEST(SessionState, ASecondSessionIsRefusedAndDisturbsNothing) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    tivra::Session& other = factory->createSession(client.user(), client);
    other.getConnectionConfig().getHostConfig(hub.hostString());
    other.registerMessageEventHandler(&client);
    std::string reason;
    EXPECT_FALSE(other.start(reason));
    EXPECT_EQ(reason, "Multiple Sessions are not supported; ignoring start request");
    factory->destroySession(other);
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    EXPECT_EQ(hub.statistics().accepted, 1U);
}

TEST(SessionState, StartWithoutWhatItNeeds) {
    {
        Client client{Client::Options()};
        EXPECT_EQ(client.start(), "Primary connection empty or Primary and backup have same connection");
        EXPECT_FALSE(client.isStarted);
        client.host("127.0.0.1:1").set(HostConfig::BACKUP_BOOL, true);
        EXPECT_EQ(client.start(), "Primary connection empty or Primary and backup have same connection");
    }
    Client::Options options({"127.0.0.1:1"});
    options.registerHandler = false;
    Client client(options);
    EXPECT_EQ(client.start(), "Cannot start session without first registering a message event handler");
    EXPECT_FALSE(client.isStarted);
}

class BadHostTest : public testing::TestWithParam<const char*> {};

TEST_P(BadHostTest, FailsTheStartWithAReason) {
    Client client(GetParam());
    client.connections().set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 0);
    EXPECT_THAT(client.start(), testing::Not(testing::AnyOf("", "Session started")));
    EXPECT_FALSE(client.isStarted);
}

INSTANTIATE_TEST_SUITE_P(E2E, BadHostTest,
                         testing::Values("", ":", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
                                         "127.0.0.1:12x", "localhost:1234", "999.1.1.1:1234",
                                         "127.0.0.1:99999999999999999999", "255.255.255.255:1"));

TEST(SessionState, StopFromAnotherThreadEndsAWaitingStart) {
    StartedHub hub;
    hub.ignore("ListEnumeration");
    Client client(hub);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 0);
    for (int round = 0; round < 2; ++round) {
        hub.clearRequests();
        auto started = std::async(std::launch::async, [&] { return client.start(); });
        ASSERT_TRUE(hub.waitForCommand("ListEnumeration"));
        EXPECT_TRUE(client.session().stop());
        EXPECT_EQ(started.get(), "Session stopped before it was established");
        EXPECT_FALSE(client.isStarted);
    }
    hub.clearRefusals();
    EXPECT_TRUE(client.startAndWait());
}

TEST(SessionState, CallsThatALibraryThreadMayNotMakeAreRefused) {
    StartedHub hub;
    Client client(hub);
    std::string reason;
    bool startResult = true;
    bool stopResult = false;
    client.sessionHook = [&](const tivra::SessionEvent& event) {
        if (event.getType() != tivra::SessionEvent::TIVRA_SESSION_ESTABLISHED)
            return;
        stopResult = client.session().stop();
        startResult = client.session().start(reason);
        tivra::APIFactory::getInstance()->destroySession(client.session());
        tivra::APIFactory::getInstance()->destroyUserInfo(client.user());
    };
    ASSERT_TRUE(client.startAndWait());
    EXPECT_TRUE(stopResult);
    EXPECT_FALSE(startResult);
    EXPECT_NE(reason, "Session started");
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0) << "and the session lives on";
    EXPECT_THAT(client.log(), HasSubstr("CRIT"));
}

Client::Options withBackup(const Hub& primary) {
    return Client::Options({primary.hostString()});
}

TEST(Failover, ToTheBackupAndBack) {
    StartedHub primary;
    StartedHub backup;
    Client client(withBackup(primary));
    client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true);
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(backup.statistics().accepted, 0U);
    const std::int64_t tag = client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(tag));
    client.forget();

    const auto firstLoss = std::chrono::steady_clock::now();
    primary.stop();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    EXPECT_TRUE(backup.waitForSubscriptions(1)) << "the standing request moves along";
    EXPECT_EQ(backup.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, "1.5")), 1U);
    EXPECT_TRUE(client.waitForUpdates(1));
    EXPECT_EQ(client.start(), "Session has already been started; ignoring start request");
    client.forget();

    primary.start();
    backup.stop(); // and back, once fifteen seconds have passed since the first change
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    EXPECT_GE(std::chrono::steady_clock::now() - firstLoss, std::chrono::seconds(15));
    EXPECT_TRUE(primary.waitForSubscriptions(1));
}

TEST(Failover, EndsWhatNoHubCanAnswerAnyMore) {
    StartedHub primary;
    StartedHub backup;
    Client client(withBackup(primary));
    client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true);
    client.settings().set(tivra::SessionConfig::END_LOST_REQUESTS_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    primary.stop();
    ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
    const std::int64_t tag = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(tag)) << "it waited for the primary";
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    ASSERT_EQ(client.messagesOf(tag).size(), 1U);
    EXPECT_EQ(client.messagesOf(tag).front().type, tivra::MessageEvent::IMAGE_COMPLETE);
    EXPECT_EQ(client.messagesOf(tag).front().status, -997);
}

/// The threads of the other side's hubs, or of a new dictionary's.
TEST(Failover, ThreadsThatAreRefusedAreAskedForAgain) {
    StartedHub primary;
    StartedHub backup;
    Client client(withBackup(primary));
    client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    client.forget();
    {
        const RefusedThreads refused;
        EXPECT_THROW(std::thread([] {}), std::system_error);
        primary.stop();
        ASSERT_TRUE(client.waitForLog("Unable to create a new user thread"));
        std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // two attempts more must say nothing
    }
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
    const std::string log = client.log();
    const std::string line = "CRIT: Unable to create a new HUB thread";
    EXPECT_NE(log.find(line), std::string::npos);
    EXPECT_EQ(log.find(line), log.rfind(line)) << "once is enough";
}

TEST(Failover, AtTheStartOnlyOnce) {
    StartedHub primary;
    StartedHub backup;
    primary.setAccepting(false);
    Client client(withBackup(primary));
    client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true);
    client.host("127.0.0.1:1"); // a second primary host, which has no counterpart
    client.connections().set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 0);
    EXPECT_EQ(client.start(), "Session started");
    EXPECT_EQ(backup.statistics().loggedIn, 1U);
    EXPECT_THAT(client.log(), HasSubstr("primary hosts (2) and of backup hosts (1) differ in length"));
    client.session().stop();

    backup.setAccepting(false);
    EXPECT_THAT(client.start(), HasSubstr("127.0.0.1:"));
    EXPECT_FALSE(client.isStarted);
}

} // namespace
