// Requests on the wire: frames, limits, slow and stalled peers.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "hub/HubFixture.h"
#include "tp/SocketPair.h"

namespace tivra_internal {
namespace {

using HubWritingTest = HubFixture;

TEST_F(HubWritingTest, TheLongestTextGoesOutAndALongerOneLeavesTheConnectionOpen) {
    makeClient();
    connect();
    const std::string longest(8184, 'a');
    EXPECT_EQ(client->sendRequest(longest.c_str(), nullptr), 1);
    EXPECT_EQ(hub.readBytes(8184 + 7), std::string("\x04\x20\x00\x00\x1f\xf8", 6) + longest + '\x03');
    LogCapture log;
    EXPECT_EQ(client->sendRequest((longest + 'a').c_str(), nullptr), -1);
    EXPECT_TRUE(log.has("CRIT: HubClient::sendRequest - Maximum Length Exceeded 8185"));
    EXPECT_EQ(client->sendRequest("after", nullptr), 1);
    EXPECT_EQ(hub.readRequest(), "after");
    client->closeConnection();
    EXPECT_EQ(client->sendRequest("after", nullptr), -1);
}

/// A pair of sockets of which one is written, with space for little.
class SlowPeerTest : public testing::Test {
protected:
    SlowPeerTest() {
        const int small = 4096;
        ::setsockopt(pair.fd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
    }
    void fillUp() {
        const std::string block(512, 'f');
        while (::send(pair.fd(), block.data(), block.size(), MSG_NOSIGNAL) > 0) {
        }
    }
    /// Reads until `count` bytes have come.
    std::string drain(std::size_t count) {
        std::string bytes;
        std::vector<char> block(1024);
        while (bytes.size() < count && waitReadable(pair.peer())) {
            const ssize_t got = ::recv(pair.peer(), block.data(), block.size(), 0);
            if (got > 0)
                bytes.append(block.data(), static_cast<std::size_t>(got));
        }
        return bytes;
    }

    int writeFrame(const timeval* limit) {
        return socket.writen(pair.fd(), frame.data(), static_cast<int>(frame.size()), limit);
    }

    tp::ManualClock clock;
    FakeHubSession session;
    const HubClientOptions options{.readTimeout = 5};
    HubAddress address{options};
    HubSocket socket{address, session, options, [] { return 0.0; }};
    SocketPair pair{SOCK_NONBLOCK};
    const timeval timeout{0, 100};
    const std::string frame = std::string(300'000, 'q') + 'z';
};

TEST_F(SlowPeerTest, AFrameNotBegunIsGivenUpAtItsTimeLimit) {
    fillUp();
    EXPECT_EQ(writeFrame(&timeout), -2);
    EXPECT_FALSE(socket.isOutOfStep());
}

void ignoreSignal(int) {}

TEST_F(SlowPeerTest, AFrameOnceBegunEndsWholeWhateverTheTimeLimitAndThroughSignals) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = ignoreSignal; // without SA_RESTART: every wait and write may end with EINTR
    ::sigaction(SIGUSR1, &action, &before);
    const pthread_t writer = ::pthread_self();
    std::string received;
    std::thread reader([&] {
        for (int i = 0; i < 50; ++i)
            ::pthread_kill(writer, SIGUSR1);
        received = drain(frame.size());
    });
    EXPECT_EQ(writeFrame(&timeout), static_cast<int>(frame.size()));
    reader.join();
    ::sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(received, frame);
    EXPECT_FALSE(socket.isOutOfStep());
}

TEST_F(SlowPeerTest, AStalledPeerIsLeftWhenTheSessionStopsAndTheStreamIsClosed) {
    session.stopping = true;
    EXPECT_EQ(writeFrame(nullptr), -1);
    ASSERT_TRUE(socket.isOutOfStep());
    EXPECT_EQ(socket.writen(pair.fd(), "more", 4, nullptr), -1) << "nothing may follow half a frame";
    socket.close();
    EXPECT_FALSE(socket.isOutOfStep());
}

TEST_F(SlowPeerTest, AStalledPeerIsLeftAfterTheReadTimeout) {
    int waits = 0;
    session.onStopTest = [&waits] {
        ++waits;
        tp::Clock::advance(1.0);
    };
    EXPECT_EQ(writeFrame(nullptr), -1);
    EXPECT_EQ(waits, 6) << "five seconds are not past yet, six are";
    EXPECT_TRUE(socket.isOutOfStep());
}

TEST_F(SlowPeerTest, APeerThatIsGoneCostsAnErrorAndNoSignal) {
    pair.hangUp();
    EXPECT_EQ(writeFrame(nullptr), -1);
    EXPECT_FALSE(socket.isOutOfStep()) << "not a byte has gone out";
}

} // namespace
} // namespace tivra_internal
