#include "receive/QPoll.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <poll.h>

#include "receive/Queue.h"
#include "receive/UserEventBase.h"

using namespace tivra_internal;

namespace {

class QPollTest : public testing::Test {
protected:
    static void put(Queue& queue) { ASSERT_TRUE(queue.writeToQueue("x", 1)); }

    int add(std::size_t i, uint32_t events = POLLIN) {
        const QPoll::qpoll_event wanted{events, &handlers[i]};
        return poll.qpoll_ctl(QPoll::QPOLL_CTL_ADD, &queues[i], &wanted);
    }
    /// The numbers of the ready queues, in the order of the answer.
    std::vector<long> ready(int timeoutMs = 0) {
        const int n = poll.qpoll_wait(out.data(), 4, timeoutMs);
        std::vector<long> result;
        for (int i = 0; i < n; ++i)
            result.push_back(out[static_cast<std::size_t>(i)].data.load() - handlers.data());
        return result;
    }

    QPoll poll{3};
    std::array<Queue, 4> queues{Queue(1, false, nullptr, 70), Queue(1, false, nullptr, 70),
                                Queue(1, false, nullptr, 70), Queue(1, false, nullptr, 70)};
    std::array<UserEventBase, 4> handlers;
    std::array<QPoll::qpoll_ready, 4> out;
};

using Numbers = std::vector<long>;

} // namespace

TEST_F(QPollTest, ReportsWantedQueuesWithDataInTableOrder) {
    EXPECT_TRUE(ready().empty());
    ASSERT_EQ(add(2), 0);
    ASSERT_EQ(add(0), 0);
    ASSERT_EQ(add(1, POLLHUP), 0);
    for (Queue& queue : queues)
        put(queue);
    EXPECT_EQ(ready(), (Numbers{2, 0}));
    const QPoll::qpoll_event wanted{POLLIN, &handlers[1]};
    EXPECT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_MOD, &queues[1], &wanted), 0);
    EXPECT_EQ(ready(), (Numbers{2, 0, 1}));
    EXPECT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_DEL, &queues[2], nullptr), 0);
    EXPECT_EQ(ready(), (Numbers{0, 1})) << "the others keep their order";
}

TEST_F(QPollTest, WrongCallsAreRefusedAndChangeNothing) {
    const QPoll::qpoll_event wanted{POLLIN, &handlers[3]};
    EXPECT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_MOD, &queues[0], &wanted), -1);
    EXPECT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_DEL, &queues[0], nullptr), -1);
    ASSERT_EQ(add(0), 0);
    EXPECT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_ADD, &queues[0], &wanted), -1);
    EXPECT_EQ(poll.qpoll_ctl(7, &queues[0], &wanted), 0);
    ASSERT_EQ(add(1), 0);
    ASSERT_EQ(add(2), 0);
    EXPECT_EQ(add(3), -1) << "the table is full";
    for (Queue& queue : queues)
        put(queue);
    EXPECT_EQ(ready(), (Numbers{0, 1, 2}));
}

TEST_F(QPollTest, WaitEndsWithTheTime) {
    ASSERT_EQ(add(0), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(ready(20).empty());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

// Over many rounds a lost wake would show as a wait that runs into its long time-out.
TEST_F(QPollTest, ProducerOrInterruptEndsTheWait) {
    ASSERT_EQ(add(0), 0);
    queues[0].setQueueHandler(nullptr);
    const auto start = std::chrono::steady_clock::now();
    constexpr int kRounds = 200;
    std::atomic<int> taken{0};
    std::thread producer([&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_TRUE(queues[0].writeToQueue("x", 1));
            taken.wait(i);
        }
        poll.interrupt();
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(ready(60000), (Numbers{0}));
        while (!queues[0].isEmpty())
            queues[0].PopElement();
        taken = i + 1;
        taken.notify_one();
    }
    EXPECT_TRUE(ready(60000).empty());
    producer.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
}

TEST_F(QPollTest, QueueMayOutliveThePoll) {
    auto shortLived = std::make_unique<QPoll>(1);
    const QPoll::qpoll_event wanted{POLLIN, &handlers[0]};
    ASSERT_EQ(shortLived->qpoll_ctl(QPoll::QPOLL_CTL_ADD, &queues[0], &wanted), 0);
    shortLived.reset();
    put(queues[0]);
    EXPECT_FALSE(queues[0].isEmpty());
}
