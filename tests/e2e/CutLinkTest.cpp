// A link that is cut without a word: no end of stream, no reset, only packets that never arrive.
#include "Client.h"

#include <tivra_testkit/Pump.h>

#include <fcntl.h>
#include <sched.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>

#include <gtest/gtest.h>
#include <unistd.h>

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tivra_sim::Hub;

namespace {

bool run(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

/// A hub in a network namespace of its own, at the far end of a pair of virtual interfaces. Made and ended by
/// one thread.
class FarHub {
public:
    FarHub() {
        const int home = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (::unshare(CLONE_NEWNET) == 0) {
            m_away = ::open("/proc/thread-self/ns/net", O_RDONLY); // those that are run there read it
            EXPECT_EQ(::setns(home, CLONE_NEWNET), 0);
            isUp = there("ip link add " + m_far + " type veth peer name " + m_near + " netns " + m_pid) &&
                   there("ip addr add " + m_net + "2/30 dev " + m_far) && mend() &&
                   run("ip addr add " + m_net + "1/30 dev " + m_near) && run("ip link set " + m_near + " up");
        }
        if (isUp) {
            // A socket stays in the network where it was made.
            EXPECT_EQ(::setns(m_away, CLONE_NEWNET), 0);
            hub->start();
            EXPECT_EQ(::setns(home, CLONE_NEWNET), 0);
        }
        ::close(home);
    }
    ~FarHub() {
        hub.reset();
        run("ip link del " + m_near);
        if (m_away >= 0)
            ::close(m_away);
    }
    FarHub(const FarHub&) = delete;
    FarHub& operator=(const FarHub&) = delete;

    bool cut() { return there("ip link set " + m_far + " down"); }
    bool mend() { return there("ip link set " + m_far + " up"); }

    /// False where the system doesn't permit such a network.
    bool isUp = false;

private:
    tivra_sim::HubConfig config() const {
        tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
        config.bindAddress = m_net + "2";
        config.heartbeat.interval = milliseconds(250);
        return config;
    }
    bool there(const std::string& command) {
        return run("nsenter --net=/proc/" + m_pid + "/fd/" + std::to_string(m_away) + " " + command);
    }

    const std::string m_pid = std::to_string(::getpid());
    const std::string m_net = "10.254." + std::to_string(::getpid() % 250) + ".";
    const std::string m_near = "tvn" + m_pid;
    const std::string m_far = "tvf" + m_pid;
    int m_away = -1;

public:
    std::unique_ptr<Hub> hub = std::make_unique<Hub>(config());
};

TEST(CutLink, ALossWithoutASignIsFoundOutHealedAndStopped) {
    constexpr long SILENCE = 2;
    FarHub far;
    if (!far.isUp)
        GTEST_SKIP() << "no network namespaces here: they take rights, ip and nsenter";
    Client client(*far.hub);
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    client.connections().set(tivra::HostConfig::READ_TIMEOUT_LONG, SILENCE);
    std::atomic<int> last{-1};
    std::atomic<bool> isInOrder{true};
    client.messageHook = [&](const tivra::MessageEvent& event) {
        const SeenMessage message(event);
        const std::string number = message.field(tivra_sim::token::SEQUENCE);
        if (message.type != tivra::MessageEvent::UPDATE || number.empty())
            return;
        isInOrder = isInOrder && std::stoi(number) > last;
        last = std::stoi(number);
        client.notify();
    };
    const auto waitForMore = [&] {
        const int before = last;
        return client.waitUntil([&] { return last > before + 1000; });
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(far.hub->waitForSubscriptions(1));
    const tivra_testkit::Pump pump(*far.hub);
    ASSERT_TRUE(waitForMore());
    for (int cut = 0; cut < 2; ++cut) {
        client.forget();
        const auto begin = steady_clock::now();
        ASSERT_TRUE(far.cut());
        ASSERT_TRUE(client.waitForSessionEvent("UNAVAILABLE"));
        const auto noticed = steady_clock::now() - begin;
        EXPECT_GE(noticed, std::chrono::seconds(SILENCE) - milliseconds(300));
        EXPECT_LT(noticed, std::chrono::seconds(2 * SILENCE + 1 + 5)) << "with time for a busy machine";
        ASSERT_TRUE(far.mend());
        const auto mended = steady_clock::now();
        ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
        ASSERT_TRUE(waitForMore());
        std::cout << "noticed after " << duration_cast<milliseconds>(noticed).count() << " ms, data again "
                  << duration_cast<milliseconds>(steady_clock::now() - mended).count() << " ms after the mend"
                  << std::endl;
    }
    EXPECT_TRUE(isInOrder);
    ASSERT_TRUE(far.cut());
    EXPECT_LT(client.timedStop(), std::chrono::seconds(IS_SANITIZED ? 9 : 4));
    far.mend();
}

} // namespace
