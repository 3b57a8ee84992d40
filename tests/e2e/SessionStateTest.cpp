// States and events of a session from start to stop, through losses and changes of its hub.
#include "Client.h"

#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/RefusedThreads.h"

using testing::ElementsAre;
using testing::HasSubstr;
using tivra::HostConfig;
using tivra::Session;

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

TEST(SessionState, TheOnlyHubIsLostSilentlyAndComesBack) {
    StartedHub hub;
    Client client(hub);
    client.connections().set(HostConfig::READ_TIMEOUT_LONG, 2);
    ASSERT_TRUE(client.startAndWait());
    client.forget();
    hub.setSilent(true); // the connection stands, heartbeats stop
    ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
    EXPECT_EQ(client.session().getState(), Session::TIVRA_SESSION_UNAVAILABLE);
    hub.setSilent(false);
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    EXPECT_THAT(client.sessionEvents(),
                ElementsAre("UNAVAILABLE", "AVAILABLE_ALLSOURCES 100", "AVAILABLE_ALLSOURCES 101",
                            "AVAILABLE_ALLSOURCES 922", "AVAILABLE_ALLSOURCES 4100", "ESTABLISHED"));
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
}

/// A session with a hub and another in reserve.
class Failover : public testing::Test {
protected:
    Failover() { client.host(backup.hostString()).set(HostConfig::BACKUP_BOOL, true); }

    StartedHub primary;
    StartedHub backup;
    Client client{primary};
};

TEST_F(Failover, ToTheBackupAndBack) {
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

TEST_F(Failover, EndsWhatNoHubCanAnswerAnyMore) {
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
TEST_F(Failover, ThreadsThatAreRefusedAreAskedForAgain) {
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

TEST_F(Failover, AtTheStartOnlyOnce) {
    primary.setAccepting(false);
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
