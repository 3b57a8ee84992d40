// Dialling, closing and the health tests of a connection.
#include <fcntl.h>

#include <cerrno>
#include <set>

#include "hub/HubFixture.h"
#include "receive/ReadHandlerFakes.h"
#include "support/Ports.h"

namespace tivra_internal {
namespace {

using HubConnectionTest = HubFixture;

TEST_F(HubConnectionTest, ADialEndsWithARegisteredSocketThatChildrenDontInherit) {
    makeClient();
    connect();
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(client->getConnectErrno(), 0);
    EXPECT_TRUE(client->hasSocket());
    EXPECT_EQ(reactor->getSocketFD(client.get()), client->getFd());
    EXPECT_NE(::fcntl(client->getFd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(client->getFd(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(client->getInitHBTime(), 0.0);
}

TEST_F(HubConnectionTest, TheLoginGoesOutWithNoLineThatShowsIt) {
    makeClient();
    LogCapture log;
    connectAndLogin();
    EXPECT_THAT(hub.readRequest(), testing::HasSubstr("5029=pa55word"));
    EXPECT_THAT(log.lines(), testing::Each(testing::Not(testing::HasSubstr("pa55word"))));
}

TEST_F(HubConnectionTest, StandardDescriptorsAreLeftToTheHostProcess) {
    const int saved = ::fcntl(0, F_DUPFD_CLOEXEC, 10);
    ::close(0);
    makeClient();
    const bool dialled = dial(*client);
    const int fd = client->getFd();
    ::dup2(saved, 0);
    ::close(saved);
    EXPECT_TRUE(dialled);
    EXPECT_GE(fd, 3);
}

TEST_F(HubConnectionTest, AFailedDialIsKnownAtOnceCountedAndNamed) {
    const ClosedPort closed;
    for (const Options& options :
         {Options{.address = std::string(300, '1'), .retryLimit = 1},
          Options{.port = 65'536 + 80, .retryLimit = 1}, Options{.port = closed.port(), .retryLimit = 1}}) {
        makeClient(options);
        SCOPED_TRACE(client->getHubAddr());
        LogCapture log;
        EXPECT_LE(client->getHubAddr().size(), 255U);
        EXPECT_FALSE(dial(*client));
        EXPECT_EQ(client->getConnectErrno(), options.port == closed.port() ? ECONNREFUSED : EINVAL);
        EXPECT_FALSE(client->isPastRetryLimit());
        EXPECT_FALSE(dial(*client));
        EXPECT_TRUE(client->isPastRetryLimit()) << "the second failure is past a limit of one";
        EXPECT_THAT(log.linesAboveDebug(),
                    testing::Contains(testing::StartsWith("CRIT: HubClient::connectHost -(" +
                                                          client->getHubAddr() + ") Error connect "))
                        .Times(1))
            << "what is dialled again and again is said once";
    }
}

TEST_F(HubConnectionTest, ADialThatStaysOpenIsClosedPastItsLimitAndTheNextBeginsAnew) {
    const FullPort busy;
    makeClient({.port = busy.port(), .retryLimit = 0});
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
    ASSERT_TRUE(client->inProgress());
    EXPECT_FALSE(client->isConnectionTimedOut());

    tp::Clock::advance(5.0);
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay) << "the limit itself is not past";
    tp::Clock::advance(0.1);
    LogCapture log;
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::Failed);
    EXPECT_EQ(client->getFd(), -1);
    EXPECT_TRUE(client->isConnectionTimedOut());
    EXPECT_EQ(client->getConnectErrno(), ETIMEDOUT);
    EXPECT_TRUE(client->isPastRetryLimit()) << "it counts like any failed dial";
    EXPECT_THAT(log.lines(), testing::Contains(testing::StartsWith(
                                 "WARN: HubClient::connectHost -(127.0.0.1:" + std::to_string(busy.port()) +
                                 ") Connection timed out ")));
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
    EXPECT_TRUE(client->inProgress());
}

TEST_F(HubConnectionTest, AnAddressOfANameHasItsShareOfTheTimeAndTheLastOneEndsTheDial) {
    const FullPort busy;
    makeClient({.port = busy.port(), .retryLimit = 0, .addressesOfName = {"127.0.0.1", "127.0.0.2"}});
    LogCapture log;
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
    tp::Clock::advance(2.4);
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
    EXPECT_EQ(client->getHubIpAddr(), "127.0.0.1");
    EXPECT_FALSE(client->isPastRetryLimit());
    tp::Clock::advance(0.2);
    EXPECT_FALSE(dial(*client)) << "nobody listens at the other one";
    EXPECT_EQ(client->getHubIpAddr(), "127.0.0.2");
    EXPECT_EQ(client->getConnectErrno(), ECONNREFUSED);
    EXPECT_TRUE(client->isPastRetryLimit()) << "both are one failed dial";
    EXPECT_THAT(session.reports.back().cause,
                testing::EndsWith("at the last of the 2 addresses of its host"));
}

TEST_F(HubConnectionTest, WhatIsMissingAtEveryAddressSendsNobodyToTheNext) {
    const std::vector<std::string> addresses = {"127.0.0.2", "127.0.0.1"};
    makeClient({.address = addresses.front(), .addressesOfName = addresses, .requiresTls = true});
    EXPECT_FALSE(dial(*client));
    EXPECT_EQ(client->getConnectErrno(), EPERM);
    session.othersAddresses = {"127.0.0.1"};
    makeClient({.address = addresses.front(), .addressesOfName = addresses});
    EXPECT_FALSE(dial(*client)) << "another hub has the address that would answer";
    session.othersAddresses.clear();
    EXPECT_TRUE(dial(*client));
}

TEST(AddressTurnTest, GoesThroughAllAndBeginsWithTheOneThatWasReady) {
    AddressTurn turn({"a", "b", "c"}, "a");
    const auto dial = [&turn](int steps) {
        turn.begin(0.0, 6.0);
        std::string seen = turn.address();
        while (steps-- > 0 && turn.advance())
            seen += turn.address();
        return seen;
    };
    EXPECT_EQ(dial(5), "abc");
    EXPECT_EQ(dial(1), "ab") << "connected there, and never ready";
    EXPECT_EQ(dial(1), "ca");
    turn.noteReady();
    EXPECT_EQ(dial(5), "abc");
    EXPECT_DOUBLE_EQ(turn.share(2.0), 4.0) << "the last one has all that is left";
    turn.begin(0.0, 6.0);
    EXPECT_DOUBLE_EQ(turn.share(0.0), 2.0);
}

TEST_F(HubConnectionTest, TheFirstDialOfAnOutageIsMadeAtOnceAndTheOthersAtTheTurns) {
    makeClient();
    EXPECT_TRUE(client->mayDial(false));
    comeUp();
    client->closeConnection();
    EXPECT_FALSE(client->mayDial(false))
        << "a hub that is lost at once is dialled no more than once a second";
    tp::Clock::advance(1.0);
    EXPECT_TRUE(client->mayDial(false));
    connect();
    client->closeConnection();
    EXPECT_FALSE(client->mayDial(true)) << "the next turn may be close";
    tp::Clock::advance(1.0);
    EXPECT_TRUE(client->mayDial(true));
    EXPECT_FALSE(client->mayDial(false));
}

TEST_F(HubConnectionTest, ASuspensionOutlivesTheCloseAndEndsWithTheNextDial) {
    makeClient();
    connect();
    client->suspendClient("no use");
    EXPECT_EQ(client->getFd(), -1);
    EXPECT_FALSE(client->hasSocket());
    EXPECT_TRUE(client->isSuspended());
    EXPECT_EQ(client->getSuspendReason(), "no use");
    client->closeConnection();
    EXPECT_TRUE(client->isSuspended()) << "nothing was open, so nothing is cleared";
    client->startAnew();
    EXPECT_FALSE(client->isSuspended()) << "as a cross-reference hub that is tried again";
    client->suspendClient("no use");
    connect();
    EXPECT_FALSE(client->isSuspended());
    EXPECT_EQ(client->getSuspendReason(), "");
}

TEST_F(HubConnectionTest, OnlyAReadyConnectionThatTheSessionStillWantsIsALossAndReadyEndsTheCountOfDials) {
    makeClient({.retryLimit = 1});
    connectAndLogin();
    client->closeConnection();
    EXPECT_EQ(session.losses, 0) << "it had not come up";
    for (const bool letGo : {false, true}) {
        comeUp();
        tp::Clock::advance(1.0); // past the time that a handshake has
        EXPECT_FALSE(client->isPastRetryLimit());
        client->setInitialHubDisconnected(letGo);
        client->closeConnection();
        EXPECT_EQ(session.losses, 1) << "the second was let go on purpose";
    }
}

TEST_F(HubConnectionTest, APeerThatHasClosedIsFoundWithoutTakingBytes) {
    makeClient();
    connect();
    EXPECT_TRUE(client->isValidConnection());
    hub.send("5026=1|5001=0");
    ASSERT_TRUE(waitReadable(client->getFd()));
    EXPECT_TRUE(client->isValidConnection());
    client->login();
    client->readableEvent(0.0);
    EXPECT_TRUE(client->isLoggedIn()) << "the test has left the bytes where they were";
    hub.readRequest(); // the login
    hub.readRequest(); // what follows it, so that the close is an orderly one
    hub.drop();
    ASSERT_TRUE(waitReadable(client->getFd()));
    LogCapture log;
    EXPECT_FALSE(client->isValidConnection());
    EXPECT_TRUE(log.has("CRIT: Lost Connection to HUB: " + client->getHubAddr()));
}

TEST_F(HubConnectionTest, AnOutageIsLoggedOnceAndItsLengthAtItsEnd) {
    makeClient();
    comeUp();
    LogCapture log;
    for (const bool wasReady : {true, false, false}) {
        if (!wasReady)
            connect();
        hub.drop();
        ASSERT_TRUE(waitReadable(client->getFd()));
        EXPECT_FALSE(client->isValidConnection());
        client->closeConnection();
        tp::Clock::advance(10.0);
    }
    comeUp();
    const std::vector<std::string> lines = log.linesAboveDebug();
    EXPECT_THAT(lines, testing::Contains(testing::HasSubstr("Lost Connection")).Times(1));
    EXPECT_THAT(lines, testing::Contains(testing::HasSubstr("Connecting to")).Times(1));
    EXPECT_THAT(lines, testing::Contains("INFO: HUB " + hub.hostString() + " is back after 30.0 seconds"));
    log.forget();
    client->closeConnection();
    connect();
    EXPECT_THAT(log.linesAboveDebug(), testing::Contains(testing::StartsWith("INFO: Connecting to")));
}

TEST_F(HubConnectionTest, OneStepOfTheHandshakeIsBoundedByTheReadTimeout) {
    for (const long readTimeout : {5L, 0L, -3L}) {
        makeClient({.readTimeout = readTimeout, .isInline = true});
        EXPECT_FALSE(client->isInitTimedOut(0.0)) << "not connected";
        connectAndLogin();
        tp::Clock::advance(5.0);
        EXPECT_FALSE(client->isInitTimedOut(0.0));
        tp::Clock::advance(0.5);
        tp::Clock::stepWallClock(-3600.0); // changes nothing
        EXPECT_EQ(client->isInitTimedOut(0.0), readTimeout == 5);
        hub.send("5026=12");
        ASSERT_TRUE(waitReadable(client->getFd()));
        EXPECT_FALSE(client->isInitTimedOut(0.0)) << "it has spoken, and nobody has listened yet";
        client->closeConnection();
    }
}

TEST_F(HubConnectionTest, TheWholeHandshakeIsBoundedBesideTheWaitForSiblings) {
    for (const long readTimeout : {5L, 10L, 0L}) {
        SCOPED_TRACE(readTimeout);
        makeClient({.retryLimit = 1000, .readTimeout = readTimeout});
        loginAndConverse("GetPort", {"5026=7|4=922" + ownPort() + "|5=X|6=Y|5001=0"}); // a member of a group
        ASSERT_TRUE(client->waitsForBoxPerms());
        tp::Clock::advance(1000.0);
        client->requestContinueEntitlements();
        client->twentyFiveMsTick(0.0);
        ASSERT_FALSE(client->waitsForBoxPerms());
        const int limit = readTimeout == 10 ? 120 : 60;
        for (int passed = 0; passed < limit; passed += 5) {
            EXPECT_FALSE(client->isInitTimedOut(0.0)) << passed;
            tp::Clock::advance(5.0);
            answer("5026=12"); // a sign of life that leads nowhere
        }
        tp::Clock::advance(0.1);
        EXPECT_EQ(client->isInitTimedOut(0.0), readTimeout != 0);
        client->closeConnection();
        hub.drop();
    }
}

TEST_F(HubConnectionTest, OnlyAnswersToTheLibrarysOwnRequestsRefreshTheTime) {
    makeClient();
    connectAndLogin();
    // Before the login is answered, nothing is sent that would refresh the time as well.
    for (const char* body : {"5026=17|5001=0", "5026=0|5001=0", "4=922|5=.HUB.STATUS|13266=1",
                             "5026=16|5001=0", "5026=14|5001=0"}) {
        const double before = client->getInitHBTime();
        tp::Clock::advance(1.0);
        answer(body);
        const bool isOwn = std::string(body).rfind("5026=1", 0) == 0 && body[6] != '7';
        EXPECT_EQ(client->getInitHBTime(), isOwn ? tp::Clock::monotonic() : before) << body;
    }
}

/// A ready client with a read handler, whose hub is silent.
class HeartbeatTest : public HubFixture {
protected:
    explicit HeartbeatTest(bool isInline = false) {
        makeClient({.isInline = isInline});
        comeUp();
        auto readHandler = std::make_unique<QueueReadHandler>(client->getResponseQueue(), readerSession,
                                                              nullptr, nullptr, *client, false);
        reader = readHandler.get();
        client->setReadQueueHandler(std::move(readHandler));
        session.state = tivra::Session::TIVRA_SESSION_ESTABLISHED;
        client->setHBSeen(false);
    }
    bool timesOutAfter(double seconds, bool bytesSeen = false) {
        if (bytesSeen)
            client->setHBSeen(true);
        tp::Clock::advance(seconds);
        return client->isHBTimedOut(0.0);
    }

    FakeSession readerSession;
    QueueReadHandler* reader = nullptr;
};

TEST_F(HeartbeatTest, ASilentHubTimesOutOncePerReadTimeout) {
    reader->setHBTime();
    client->setHBSeen(false);
    LogCapture log;
    EXPECT_FALSE(timesOutAfter(4.0)) << "not due yet";
    EXPECT_TRUE(timesOutAfter(1.0));
    EXPECT_THAT(log.lines(), testing::Contains(testing::HasSubstr(
                                 "curtime=1700000005.000000; heartbeat_msg_time=1700000000.000000; ")));
    EXPECT_FALSE(timesOutAfter(0.0)) << "asked again at once";
}

TEST_F(HeartbeatTest, BytesCountAsLifeUnlessTheHubSaysThatItIsIdle) {
    EXPECT_FALSE(timesOutAfter(5.0, true));
    EXPECT_FALSE(client->getHBSeen()) << "each check looks at what has come since the last";
    reader->setHBTime();
    reader->setHubIdleCount(6);
    EXPECT_FALSE(timesOutAfter(5.0, true)) << "the heartbeat is not old enough";
    EXPECT_TRUE(timesOutAfter(5.0, true));
    reader->setHubIdleCount(5);
    EXPECT_FALSE(timesOutAfter(5.0, true)) << "the hub is not idle enough";
}

class InlineHeartbeatTest : public HeartbeatTest {
protected:
    InlineHeartbeatTest() : HeartbeatTest(true) {}
};

// The thread may have been held up by a callback.
TEST_F(InlineHeartbeatTest, AHubWhoseBytesWaitToBeReadIsNotSilent) {
    hub.send("4=922|5=.UTC.TIME.DATE");
    ASSERT_TRUE(waitReadable(client->getFd()));
    EXPECT_FALSE(timesOutAfter(20.0));
    client->readableEvent(tp::Clock::now());
    EXPECT_FALSE(timesOutAfter(0.0));
    EXPECT_TRUE(timesOutAfter(5.0));
}

TEST_F(HeartbeatTest, NothingIsTestedWithoutASessionOrAHandler) {
    session.state = tivra::Session::TIVRA_SESSION_UNAVAILABLE;
    EXPECT_FALSE(timesOutAfter(6.0));
    session.state = tivra::Session::TIVRA_SESSION_RECOVERY;
    EXPECT_FALSE(timesOutAfter(0.0)) << "the unavailable session has restarted the time";
    EXPECT_TRUE(timesOutAfter(6.0));
    const std::unique_ptr<QueueReadHandler> taken = client->clearQRHPointer();
    EXPECT_FALSE(client->hasReadHandler());
    EXPECT_FALSE(timesOutAfter(6.0));
}

TEST_F(HubConnectionTest, NatPairsDecideWhichAddressIsDialledAndWhichIsCompared) {
    hosts.connections.addNATPair("10.1.1.1", "127.0.0.1");
    for (const char* address : {"10.1.1.1", "127.0.0.1"}) {
        const HubAddress translated(
            HubClientOptions{.label = "hub:7", .address = address, .port = 7, .host = &host()});
        EXPECT_EQ(translated.own(), "10.1.1.1");
        EXPECT_EQ(translated.dialled(), "127.0.0.1");
        EXPECT_EQ(translated.shown(), "10.1.1.1:7 (127.0.0.1)");
    }
}

} // namespace
} // namespace tivra_internal
