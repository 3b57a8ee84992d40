// Dialling, closing and the health tests of a connection.
#include <fcntl.h>

#include <cerrno>
#include <set>

#include "hub/HubFixture.h"
#include "receive/ReadHandlerFakes.h"

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
    const uint16_t closedPort = [] {
        HubPeer other;
        return other.port();
    }();
    Options notAnAddress, noPort, farPort, refused;
    notAnAddress.address = "hub.example";
    farPort.port = 65'536 + 80;
    refused.port = closedPort;
    const struct {
        const char* what;
        Options options;
        int error;
    } cases[] = {
        {"no address", notAnAddress, EINVAL},
        {"no such port", farPort, EINVAL},
        {"nobody listens", refused, ECONNREFUSED},
    };
    for (auto row : cases) {
        row.options.retryLimit = 1;
        makeClient(row.options);
        LogCapture log;
        EXPECT_FALSE(dial(*client)) << row.what;
        EXPECT_EQ(client->getConnectErrno(), row.error) << row.what;
        EXPECT_FALSE(client->isPastRetryLimit()) << row.what;
        EXPECT_FALSE(dial(*client)) << row.what;
        EXPECT_TRUE(client->isPastRetryLimit()) << row.what << ": the second failure is past a limit of one";
        const std::string start =
            "CRIT: HubClient::connectHost -(" + client->getHubAddr() + ") Error connect ";
        EXPECT_THAT(log.lines(), testing::Contains(testing::StartsWith(start))) << row.what;
    }
}

/// A listener whose queue of waiting connections is full, so that a further dial stays open.
class BusyHub {
public:
    explicit BusyHub(const HubPeer& hub) {
        for (int i = 0; i < 64; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons(hub.port());
            static_cast<void>(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
            m_fds.push_back(fd);
            pollfd watched{fd, POLLOUT, 0};
            if (::poll(&watched, 1, 20) == 0)
                break;
        }
    }
    ~BusyHub() {
        for (const int fd : m_fds)
            ::close(fd);
    }

private:
    std::vector<int> m_fds;
};

TEST_F(HubConnectionTest, ADialThatStaysOpenIsClosedPastItsLimitAndTheNextBeginsAnew) {
    const HubPeer busy(0);
    const BusyHub fill(busy);
    Options options;
    options.port = busy.port();
    options.connectionTimeout = 5;
    makeClient(options);
    EXPECT_GE(client->connectHost(1.0), 0);
    ASSERT_TRUE(client->inProgress());
    EXPECT_FALSE(client->isConnectionTimedOut());

    tp::Clock::advance(5.0);
    EXPECT_GE(client->connectHost(1.0), 0) << "the limit itself is not past";
    tp::Clock::advance(0.1);
    LogCapture log;
    EXPECT_EQ(client->connectHost(1.0), -1);
    EXPECT_EQ(client->getFd(), -1);
    EXPECT_TRUE(client->isConnectionTimedOut());
    EXPECT_EQ(client->getConnectErrno(), ETIMEDOUT);
    EXPECT_THAT(log.lines(), testing::Contains(testing::StartsWith(
                                 "WARN: HubClient::connectHost -(127.0.0.1:" + std::to_string(busy.port()) +
                                 ") Connection timed out ")));
    EXPECT_GE(client->connectHost(1.0), 0);
    EXPECT_TRUE(client->inProgress());
}

TEST_F(HubConnectionTest, OneConnectOfATickMayWaitTheOthersOnlyLook) {
    EXPECT_EQ(reactor->takeConnectWait(7.0, 200), 200);
    EXPECT_EQ(reactor->takeConnectWait(7.0, 200), 0);
    EXPECT_EQ(reactor->takeConnectWait(8.0, 150), 150);
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
    connect();
    EXPECT_FALSE(client->isSuspended());
    EXPECT_EQ(client->getSuspendReason(), "");
}

TEST_F(HubConnectionTest, OnlyAReadyConnectionThatTheSessionStillWantsIsALoss) {
    makeClient();
    connectAndLogin();
    client->closeConnection();
    EXPECT_EQ(session.losses, 0) << "it had not come up";

    loginAndConverse(loneHub());
    ASSERT_TRUE(client->isReady());
    client->closeConnection();
    EXPECT_EQ(session.losses, 1);

    loginAndConverse(loneHub());
    ASSERT_TRUE(client->isReady());
    client->setInitialHubDisconnected(true);
    client->closeConnection();
    EXPECT_EQ(session.losses, 1) << "it was let go on purpose";
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

TEST_F(HubConnectionTest, OneStepOfTheConversationIsBoundedByTheReadTimeout) {
    for (const long readTimeout : {5L, 0L, -3L}) {
        Options options;
        options.readTimeout = readTimeout;
        makeClient(options);
        EXPECT_FALSE(client->isInitTimedOut(0.0)) << "not connected";
        connectAndLogin();
        tp::Clock::advance(5.0);
        EXPECT_FALSE(client->isInitTimedOut(0.0));
        tp::Clock::advance(0.5);
        EXPECT_EQ(client->isInitTimedOut(0.0), readTimeout == 5);
        tp::Clock::stepWallClock(-3600.0);
        EXPECT_EQ(client->isInitTimedOut(0.0), readTimeout == 5)
            << "a step of the wall clock changes nothing";
        answer("5026=1|5001=0");
        EXPECT_FALSE(client->isInitTimedOut(0.0)) << "an answer starts the time anew";
        tp::Clock::advance(6.0);
        answer("5026=99|5001=0");
        EXPECT_EQ(client->isInitTimedOut(0.0), false) << "the request that it drove out does";
        client->closeConnection();
    }
}

TEST_F(HubConnectionTest, OnlyAnswersToTheLibrarysOwnRequestsRefreshTheTime) {
    makeClient();
    connectAndLogin();
    for (const char* body : {"5026=99|5001=0", "5026=0|5001=0", "4=922|5=.HUB.STATUS|13266=1"}) {
        const double before = client->getInitHBTime();
        tp::Clock::advance(1.0);
        answer(body);
        EXPECT_EQ(client->getInitHBTime(), before) << body;
    }
}

/// A ready client with a read handler.
class HeartbeatTest : public HubFixture {
protected:
    HeartbeatTest() {
        makeClient();
        loginAndConverse(loneHub());
        auto readHandler = std::make_unique<QueueReadHandler>(client->getResponseQueue(), readerSession,
                                                              nullptr, nullptr, *client, false);
        reader = readHandler.get();
        client->setReadQueueHandler(std::move(readHandler));
        session.state = tivra::Session::TIVRA_SESSION_ESTABLISHED;
        client->setHBSeen(false);
    }

    FakeSession readerSession;
    QueueReadHandler* reader = nullptr;
};

TEST_F(HeartbeatTest, ASilentHubTimesOutOncePerReadTimeout) {
    tp::Clock::advance(4.9);
    EXPECT_FALSE(client->isHBTimedOut(0.0)) << "not due yet";
    tp::Clock::advance(0.1);
    EXPECT_TRUE(client->isHBTimedOut(0.0));
    EXPECT_FALSE(client->isHBTimedOut(0.0)) << "asked again at once";
}

TEST_F(HeartbeatTest, BytesCountAsLifeUnlessTheHubSaysThatItIsIdle) {
    tp::Clock::advance(5.0);
    client->setHBSeen(true);
    EXPECT_FALSE(client->isHBTimedOut(0.0));
    EXPECT_FALSE(client->getHBSeen()) << "each check looks at what has come since the last";
    reader->setHBTime();
    reader->setHubIdleCount(6);
    client->setHBSeen(true);
    tp::Clock::advance(5.0);
    EXPECT_FALSE(client->isHBTimedOut(0.0)) << "the heartbeat is not old enough";
    client->setHBSeen(true);
    tp::Clock::advance(5.0);
    EXPECT_TRUE(client->isHBTimedOut(0.0));
}

TEST_F(HeartbeatTest, NothingIsTestedWithoutASessionOrAHandler) {
    session.state = tivra::Session::TIVRA_SESSION_UNAVAILABLE;
    tp::Clock::advance(6.0);
    EXPECT_FALSE(client->isHBTimedOut(0.0));
    session.state = tivra::Session::TIVRA_SESSION_RECOVERY;
    EXPECT_FALSE(client->isHBTimedOut(0.0)) << "the unavailable session has restarted the time";
    tp::Clock::advance(6.0);
    EXPECT_TRUE(client->isHBTimedOut(0.0));
    const std::unique_ptr<QueueReadHandler> taken = client->clearQRHPointer();
    EXPECT_FALSE(client->hasReadHandler());
    tp::Clock::advance(6.0);
    EXPECT_FALSE(client->isHBTimedOut(0.0));
}

TEST_F(HubConnectionTest, NatPairsDecideWhichAddressIsDialledAndWhichIsCompared) {
    hosts.connections.addNATPair("10.1.1.1", "127.0.0.1");
    Options options;
    options.address = "10.1.1.1";
    makeClient(options);
    EXPECT_EQ(client->getHubIpAddr(), "10.1.1.1");
    EXPECT_EQ(client->getHubAddr(), "10.1.1.1:" + std::to_string(hub.port()) + " (127.0.0.1)");
    EXPECT_TRUE(dial(*client)) << "the local address is the one that is dialled";
    options.address = "127.0.0.1";
    makeClient(options);
    EXPECT_EQ(client->getHubIpAddr(), "10.1.1.1");
    EXPECT_EQ(client->getHubAddr(), "10.1.1.1:" + std::to_string(hub.port()) + " (127.0.0.1)");
}

TEST_F(HubConnectionTest, NamesAreCutAndADummyHasNoSocketToLose) {
    Options options;
    options.address = std::string(300, '1');
    makeClient(options);
    EXPECT_EQ(client->getHubAddr(), std::string(255, '1'));

    HubClient dummy(HandleAccess::impl(*userHandle), session, nullptr, "", 0, 0, 0, 0, false, 0, nullptr, 1,
                    0, false);
    EXPECT_TRUE(dummy.isDummy());
    EXPECT_EQ(dummy.getHubAddr(), "non-HUB");
    EXPECT_EQ(dummy.getReactor(), nullptr);
    dummy.closeConnection();
    EXPECT_EQ(dummy.login(), -1);
    EXPECT_NE(session.first, &dummy);
}

} // namespace

} // namespace tivra_internal
