// Delivery by the thread that reads.
#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>

#include <tp/Clock.h>

#include "RingFixture.h"
#include "receive/QPoll.h"
#include "receive/UserEventBase.h"

using namespace tivra_internal;

namespace {

using Frames = std::vector<std::string>;

class HookedHandler : public RecordingHandler {
public:
    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) override {
        const unsigned result = RecordingHandler::process_kvn_buffer(buf, len, netMsgs);
        if (onFrame)
            onFrame();
        return result;
    }
    std::function<void()> onFrame;
};

class InlineTest : public RingTest {
protected:
    InlineTest() {
        queue.setInlineDelivery();
        queue.setQueueHandler(&hooked);
    }
    void registerConsumer() {
        const QPoll::qpoll_event wanted{POLLIN, &event};
        ASSERT_EQ(poll.qpoll_ctl(QPoll::QPOLL_CTL_ADD, &queue, &wanted), 0);
    }
    [[nodiscard]] bool isReady() { return poll.qpoll_wait(ready.data(), 1, 0) == 1; }
    void read(const std::string& bytes) {
        socket.write(bytes);
        ASSERT_FALSE(readOnce());
    }

    HookedHandler hooked;
    QPoll poll{1};
    UserEventBase event;
    std::array<QPoll::qpoll_ready, 1> ready;
    const std::string a = frameOf("1=a"), b = frameOf("1=b"), c = frameOf("1=c"), d = frameOf("1=d");
};

} // namespace

TEST_F(InlineTest, ReadDeliversWhatHasComeOnceThereIsAConsumer) {
    const tp::ManualClock clock; // no delivery takes too long
    read(a);
    EXPECT_TRUE(hooked.frames.empty()) << "before anybody serves the queue";
    registerConsumer();
    EXPECT_TRUE(isReady());
    read(b);
    EXPECT_EQ(hooked.frames, (Frames{a, b})) << "the reader catches up by itself";
    hooked.onFrame = [&] { EXPECT_FALSE(isReady()) << "nobody else is to take it"; };
    read(c + d.substr(0, 3));
    EXPECT_EQ(hooked.frames, (Frames{a, b, c}));
    read(d.substr(3));
    EXPECT_EQ(hooked.frames, (Frames{a, b, c, d}));
    EXPECT_FALSE(isReady());
    // The consumer has slept, and so have its ticks.
    EXPECT_TRUE(queue.calcStats(1.0));
    EXPECT_EQ(queue.statistics().getMsgsOut(), 4U);
}

TEST_F(InlineTest, WhatASlowCallbackLeavesIsTheConsumersAndWakesIt) {
    const tp::ManualClock clock;
    registerConsumer();
    hooked.onFrame = [] { tp::Clock::advance(0.002); };
    std::atomic<bool> isWaiting{false};
    std::thread consumer([&] {
        isWaiting = true;
        isWaiting.notify_all();
        // The time stands: only the wake ends it.
        EXPECT_EQ(poll.qpoll_wait(ready.data(), 1, 60'000), 1);
    });
    isWaiting.wait(false);
    read(a + b + c);
    consumer.join();
    EXPECT_EQ(hooked.frames, (Frames{a}));
    read(d);
    EXPECT_EQ(hooked.frames, (Frames{a, b})) << "the order is kept";
    popAll();
    EXPECT_EQ(hooked.frames, (Frames{a, b, c, d}));
}

TEST_F(InlineTest, AConsumerInACallbackIsNotWaitedForAndGoesOn) {
    read(a + b);
    registerConsumer();
    hooked.onFrame = [&] {
        hooked.onFrame = nullptr;
        std::thread([&] { read(c); }).join();
        EXPECT_EQ(hooked.frames, (Frames{a}));
    };
    popAll();
    EXPECT_EQ(hooked.frames, (Frames{a, b, c}));
}

class InlineRewindTest : public InlineTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(InlineRewindTest, ReadsComeToTheSamePlacesAndABegunFrameGoesWithThem) {
    const tp::ManualClock clock; // no delivery takes too long
    registerConsumer();
    const std::string filler = frameOf(std::string(30'000, 'f'));
    const std::string split = frameOf(std::string(6'000, 's'));
    const auto begun = static_cast<std::ptrdiff_t>(GetParam());
    for (int i = 0; i < 50; ++i) {
        read(filler + filler + filler + split.substr(0, GetParam()));
        read(split.substr(GetParam()));
        ASSERT_EQ(hooked.frames.back(), split);
    }
    EXPECT_EQ(hooked.frames.size(), 200U);
    const auto [first, last] = std::minmax_element(hooked.places.begin(), hooked.places.end());
    EXPECT_LT(*last - *first, 200'000) << "of a ring of a megabyte";
    EXPECT_EQ(hooked.places[3] == *first, begun <= 4096);
}

INSTANTIATE_TEST_SUITE_P(Receive, InlineRewindTest, testing::Values(0, 3, 4096, 5000));

// Under the thread sanitizer too.
TEST_F(InlineTest, ReaderAndConsumerTakeTurnsWithoutLossOrDisorder) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const tp::ManualClock clock;
    registerConsumer();
    std::thread::id reader;
    std::size_t byReader = 0;
    hooked.onFrame = [&] {
        byReader += std::this_thread::get_id() == reader ? 1U : 0U;
        if (hooked.frames.size() % 100 < 30)
            tp::Clock::advance(0.002); // slow: each read leaves the frames after its first
    };
    constexpr std::size_t kFrames = 20'000;
    std::atomic<bool> done{false};
    std::thread producer([&] {
        reader = std::this_thread::get_id();
        std::string bytes;
        for (std::size_t i = 0; i < kFrames; ++i) {
            bytes += frameOf(std::to_string(i));
            if (random() % 8 != 0 && i + 1 < kFrames)
                continue;
            for (queue.calcQueueFullStats(); queue.getPctFull() > 50; queue.calcQueueFullStats())
                std::this_thread::yield();
            feed(bytes);
            bytes.clear();
            // Sometimes the consumer finishes what it was left, and at other times it is interrupted.
            for (const bool waits = random() % 4 == 0; waits && !queue.isEmpty();)
                std::this_thread::yield();
        }
        done = true;
    });
    while (!done || !queue.isEmpty())
        if (poll.qpoll_wait(ready.data(), 1, 1) == 1)
            queue.PopElement();
    producer.join();
    ASSERT_EQ(hooked.frames.size(), kFrames);
    for (std::size_t i = 0; i < kFrames; ++i)
        ASSERT_EQ(hooked.frames[i], frameOf(std::to_string(i)));
    EXPECT_GT(byReader, 0U);
    EXPECT_LT(byReader, kFrames) << "the consumer has had nothing to do";
}
