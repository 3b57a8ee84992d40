// What the library leaves behind, and applications that end in unusual ways.
#include "Client.h"

#include "Process.h"
#include "support/Sanitizers.h"
#include <tivra_testkit/Pump.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

using tivra::HostConfig;
using tivra_sim::Hub;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

std::size_t heapInUse() {
    return IS_SANITIZED ? 0 : mallinfo2().uordblks;
}

class StartsAndStops : public testing::TestWithParam<int> {};

/// A hundred starts and stops in four processes, since each takes the one second of the supervision.
TEST_P(StartsAndStops, LeaveNothingBehind) {
    constexpr int CYCLES = IS_SANITIZED ? 8 : 25;
    StartedHub hub;
    Client client(hub);
    const std::size_t threadsBefore = threads();
    std::size_t descriptorsAfterWarmUp = 0;
    std::size_t heapAfterWarmUp = 0;
    constexpr int WARM_UP = 5;
    for (int cycle = 1; cycle <= CYCLES; ++cycle) {
        ASSERT_EQ(client.start(), "Session started");
        EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        client.session().stop();
        ASSERT_TRUE(hub.waitForConnections(0));
        EXPECT_EQ(threadsOnce(threadsBefore), threadsBefore);
        client.forget();
        hub.clearRequests();
        if (cycle == WARM_UP) {
            descriptorsAfterWarmUp = descriptors();
            heapAfterWarmUp = heapInUse();
        }
    }
    EXPECT_EQ(descriptors(), descriptorsAfterWarmUp);
    EXPECT_LE(heapInUse(), heapAfterWarmUp + 16384) << "a dictionary alone is more than that";
}

INSTANTIATE_TEST_SUITE_P(E2E, StartsAndStops, testing::Range(0, IS_SANITIZED ? 1 : 4));

class RunningTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(client.startAndWait());
        ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
        ASSERT_EQ(hub.pushRecord(Record(100, "IBM").add(token::BID, "1")), 1U);
        ASSERT_TRUE(client.waitForUpdates(1));
    }
    StartedHub hub;
    Client client{hub};
};

TEST_F(RunningTest, DestroyedInEveryLegalOrderWhileDataFlows) {
    tivra_testkit::Pump pump(hub);
    const std::size_t before = threads();
    tivra::Request& unfinished = client.session().createRequest();
    unfinished.setCommand(tivra::QUERYSNAP);
    for (int i = 0; i < 100; ++i)
        client.send(tivra::QUERYSNAP, 100, "IBM");
    client.destroyUserTooEarly();
    client.destroySession();
    EXPECT_LT(threads(), before);
    EXPECT_EQ(unfinished.generateTag(), 0) << "a request outlives its session, of no use";
    client.destroyUser();
}

TEST_F(RunningTest, HandlersAreTakenAwayWhileDataFlows) {
    tivra_testkit::Pump pump(hub);
    RecordingApp other;
    client.session().registerStatisticsEventHandler(&client, 0);
    for (int round = 0; round < 5; ++round) {
        client.session().registerMessageEventHandler(nullptr);
        client.session().registerStatisticsEventHandler(nullptr, 1);
        client.session().registerMessageEventHandler(&other);
        EXPECT_TRUE(other.waitForUpdates(1));
        client.session().registerMessageEventHandler(&client);
        client.session().registerStatisticsEventHandler(&client, 0);
    }
    client.forget();
    EXPECT_TRUE(client.waitForUpdates(10));
    client.destroySession();
}

/// The child of a process with a session.
class ForkTest : public RunningTest {
protected:
    /// Uses all that its parent has made. Returns the number of what doesn't fail as it should, or 0.
    int useAll() {
        tivra::Session& session = client.session();
        std::string reason;
        if (session.start(reason) || reason.find("parent") == std::string::npos || !session.stop())
            return 1;
        if (session.getState() != tivra::Session::TIVRA_SESSION_UNAVAILABLE ||
            client.user().getState() != tivra::UserInfo::NOT_AUTHENTICATED)
            return 2;
        session.registerStatisticsEventHandler(nullptr, 1);
        session.getSessionConfig().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
        connections.set(HostConfig::QUEUE_SIZE_LONG, 1).addNATPair("1.2.3.4", "5.6.7.8");
        for (tivra::ConnectionConfig* each : {&connections, &session.getConnectionConfig()})
            each->getHostConfig("1.2.3.4:5").set(HostConfig::BACKUP_BOOL, true);
        host.set(HostConfig::COMPRESSION_BOOL, true);
        for (tivra::Request* each : {&request, &session.createRequest()}) {
            each->setCommand(tivra::QUERYSNAP);
            each->add(tivra::SYMBOL_TICKER, std::string("IBM")).clearRequest();
            if (each->generateTag() != 0 || session.send(*each) != 0)
                return 3;
            session.freeRequest(*each);
        }
        tivra::APIFactory::getInstance()->destroySession(session);
        tivra::APIFactory::getInstance()->destroyUserInfo(client.user());
        return 0;
    }
    /// Then it may have a session too; but the thread sanitizer refuses threads in a child.
    static int useOwn(const std::string& address) {
        Client own(address);
        return IS_SANITIZED || (own.startAndWait() && own.ask(tivra::QUERYSNAP, 100, "IBM") == 0) ? 0 : 4;
    }

    tivra::ConnectionConfig& connections = client.connections();
    tivra::HostConfig& host = client.host(hub.hostString());
    tivra::Request& request = client.session().createRequest();
};

TEST_F(ForkTest, CallsOnWhatTheParentHasMadeFailAndTheParentGoesOn) {
    if (kHasAddressSanitizer)
        GTEST_SKIP()
            << "a child inherits the mutexes of this sanitizer's allocator as they are, locked ones too";
    constexpr int CHILDREN = 20;
    tivra_testkit::Pump pump(hub);
    // Has many a mutex locked at the time of a fork.
    std::atomic<bool> isDone{false};
    std::thread busy([&] {
        while (!isDone) {
            client.session().freeRequest(client.session().createRequest());
            client.host(hub.hostString()).set(HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG, 5);
        }
    });
    for (int round = 0; round < CHILDREN; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60); // the end of one that waits for ever
            ::_exit(useAll() + (round == 0 ? useOwn(hub.hostString()) : 0));
        }
        int result = -1;
        EXPECT_EQ(::waitpid(child, &result, 0), child);
        EXPECT_EQ(result, 0);
    }
    isDone = true;
    busy.join();
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "BAC"), 0);
    EXPECT_EQ(hub.statistics().accepted, IS_SANITIZED ? 1U : 2U);
    int lines = 0;
    const std::string log = client.log();
    for (std::size_t at = 0; (at = log.find(" in a forked process, ", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(lines, CHILDREN) << "one for each child";
}

/// It holds copies of the descriptors.
TEST_F(ForkTest, AConnectionEndsThoughAChildGoesOn) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char byte = 0;
        ::close(ends[1]);
        ::_exit(static_cast<int>(::read(ends[0], &byte, 1))); // until the parent closes its end
    }
    client.session().stop();
    EXPECT_TRUE(hub.waitForConnections(0));
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

/// Runs a session with data in flight and ends the process in the middle of it.
[[noreturn]] void runAndExit(void (*end)(int)) {
    auto* hub = new Hub;
    hub->start();
    auto* client = new Client(*hub);
    if (!client->startAndWait() || client->ask(tivra::SUBSCRIBE, 100, "IBM") != 0)
        ::_exit(3);
    new tivra_testkit::Pump(*hub);
    if (!client->waitForUpdates(100))
        ::_exit(4);
    end(7);
    std::abort();
}

/// What an application throws in a callback stays there, and what it does about signals stays as it is.
TEST(Guest, LetsExceptionsEndAtItsEdgeAndSignalsAlone) {
    std::signal(SIGPIPE, SIG_DFL);
    StartedHub hub;
    Client client(hub);
    std::atomic<int> messages{0};
    client.messageHook = [&](const tivra::MessageEvent&) {
        ++messages;
        client.notify();
        if (messages % 2 == 0)
            throw std::runtime_error("of a message");
        throw 7;
    };
    client.sessionHook = [](const tivra::SessionEvent&) { throw std::runtime_error("of an event"); };
    ASSERT_EQ(client.start(), "Session started");
    for (int sent = 0; sent < 4; ++sent)
        client.send(tivra::QUERYSNAP, 100, "IBM");
    EXPECT_TRUE(client.waitUntil([&] { return messages >= 4; }));
    for (const char* const text :
         {"application's onMessageEvent: of a message", "application's onMessageEvent: one that is no",
          "application's onSessionEvent: of an event"})
        EXPECT_TRUE(client.waitForLog(text)) << text;
    hub.stop();
    client.send(tivra::QUERYSNAP, 100, "IBM");
    client.session().stop();
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
}

TEST(ProcessDeathTest, ExitsWhileTheSessionRuns) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runAndExit([](int code) { std::exit(code); }), testing::ExitedWithCode(7), "");
    EXPECT_EXIT(runAndExit([](int code) { std::quick_exit(code); }), testing::ExitedWithCode(7), "");
}

} // namespace
