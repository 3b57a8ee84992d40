#include "receive/Queue.h"

#include <atomic>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <tp/Clock.h>

#include "RingFixture.h"
#include "receive/ServeTurn.h"

using namespace tivra_internal;

namespace {

using Frames = std::vector<std::string>;

} // namespace

TEST(Queue, SizeIsCorrectedAndThresholdsFollowIt) {
    const struct {
        std::size_t megabytes;
        int threshold, down;
        std::size_t fits;
    } cases[] = {{0, 70, 50, 1},   {1, 10, 1, 1},    {2, 70, 60, 2},     {5, 70, 66, 5},
                 {20, 70, 69, 20}, {21, 70, 70, 21}, {30, 101, 101, 30}, {1000, 70, 70, 256}};
    for (const auto& c : cases) {
        Queue queue(c.megabytes, false, nullptr, c.threshold);
        EXPECT_EQ(queue.getWarnDownThreshold(), c.down) << c.megabytes;
        const std::string block(1048576, 'x');
        std::size_t blocks = 0;
        while (blocks <= 256 && queue.writeToQueue(block.data(), block.size()))
            ++blocks;
        EXPECT_EQ(blocks, c.fits) << c.megabytes;
    }
}

TEST_F(RingTest, SocketNameIsCutNotOverrun) {
    queue.setsocketDesc(std::string(300, 'd'));
    EXPECT_EQ(queue.getSocketDesc(), std::string(255, 'd'));
}

TEST_F(RingTest, FailedParseIsCountedAndTheNextFrameGoesOn) {
    feed(frameOf("1=a") + frameOf("1=b"));
    handler.failures = 3;
    EXPECT_FALSE(queue.PopElement());
    handler.failures = 0;
    EXPECT_TRUE(queue.PopElement());
    EXPECT_EQ(droppedOut(), 3U);
    EXPECT_EQ(queue.statistics().out.m_msgs_out.get(), 1U);
    EXPECT_EQ(queue.statistics().out.m_net_msgs_out.get(), 2U);
    // Without a handler a frame is dropped, but counted.
    queue.setQueueHandler(nullptr);
    feed(frameOf("1=c"));
    queue.PopElement();
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.statistics().out.m_msgs_out.get(), 2U);
}

TEST_F(RingTest, AFrameKnowsItsReadWhereverItLiesAndHoweverLateItIsTakenOut) {
    struct : RecordingHandler {
        unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) override {
            times.push_back(queue->frameReadAt());
            return RecordingHandler::process_kvn_buffer(buf, len, netMsgs);
        }
        Queue* queue = nullptr;
        std::vector<double> times;
    } timing;
    timing.queue = &queue;
    queue.setQueueHandler(&timing);
    const tp::ManualClock clock;
    std::mt19937 random(7);
    std::vector<double> expected;
    for (int i = 0; i < 300; ++i) {
        tp::Clock::advance(0.5);
        feed(frameOf(std::string(random() % 40'000, 'x')));
        expected.push_back(tp::Clock::monotonic());
        while (expected.size() - timing.times.size() > random() % 12)
            queue.PopElement();
        if (i % 50 != 49)
            continue;
        queue.reset();
        expected.resize(timing.times.size());
    }
    EXPECT_EQ(timing.times, expected);
}

TEST_F(RingTest, WhatAResetFindsInTheQueueIsDroppedAndCountedAlsoBeyondTheEndOfTheRing) {
    for (const std::size_t distance : {kChunk, std::size_t{12}, std::size_t{3}}) {
        goToEnd(distance);
        feed(frameOf("1=a") + frameOf("1=b") + "\x04\x20");
        ASSERT_TRUE(queue.PopElement());
        const uint64_t before = droppedOut();
        reset();
        EXPECT_EQ(droppedOut() - before, frameOf("1=b").size() + 2) << distance;
        reset(); // which finds nothing
        EXPECT_EQ(droppedOut() - before, frameOf("1=b").size() + 2) << distance;
        feed(frameOf("1=c"));
        EXPECT_EQ(popAll(), 1U);
        reset();
    }
}

TEST_F(RingTest, ResetForgetsTheConnectionButNotTheCounters) {
    feed(frameOf("1=a") + "\x04\x20");
    queue.incrQueryCount();
    queue.reset();
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.getQueryCount(), 0);
    EXPECT_EQ(handler.resets, 1);
    EXPECT_EQ(queue.statistics().in.m_msgs_in.get(), 1U);
    feed(frameOf("1=b"));
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(handler.frames, (Frames{frameOf("1=b")}));
    EXPECT_EQ(droppedIn(), 0U) << "the partial frame of the old connection is gone without a trace";
}

TEST_F(RingTest, BytesReadBeforehandComeFirst) {
    const std::string first = frameOf("1=first"), second = frameOf("1=second");
    EXPECT_FALSE(queue.takeOver({nullptr, 0}));
    const std::string early = first + second.substr(0, 5);
    EXPECT_FALSE(queue.takeOver({early.data(), early.size()}));
    feed(second.substr(5));
    EXPECT_EQ(popAll(), 2U);
    EXPECT_EQ(handler.frames, (Frames{first, second}));
    const std::string tooMuch(kRing + 1, 'x');
    EXPECT_TRUE(queue.takeOver({tooMuch.data(), tooMuch.size()}));
}

TEST_F(RingTest, ResetWaitsForARunningCallback) {
    class SlowHandler : public RecordingHandler {
    public:
        unsigned process_kvn_buffer(char*, unsigned long, uint64_t*) override {
            inside = true;
            inside.notify_all();
            resetStarted.wait(false);
            EXPECT_FALSE(resetDone);
            return 0;
        }
        std::atomic<bool> inside{false}, resetStarted{false}, resetDone{false};
    } slow;
    queue.setQueueHandler(&slow);
    feed(frameOf("1=a"));
    std::thread consumer([&] { queue.PopElement(); });
    slow.inside.wait(false);
    EXPECT_FALSE(queue.isEmpty()) << "the frame's place isn't free yet";
    std::thread producer([&] {
        slow.resetStarted = true;
        slow.resetStarted.notify_all();
        queue.reset();
        slow.resetDone = true;
    });
    producer.join();
    consumer.join();
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(slow.resets, 1);
    queue.setQueueHandler(nullptr);
}

TEST_F(RingTest, ResetDoesNotWaitForAllFramesOfATurn) {
    class YieldingHandler : public RecordingHandler {
    public:
        unsigned process_kvn_buffer(char*, unsigned long, uint64_t*) override {
            ++calls;
            calls.notify_all();
            if (isResetWanted)
                std::this_thread::yield();
            return 0;
        }
        std::atomic<int> calls{0};
        std::atomic<bool> isResetWanted{false};
    } yielding;
    const tp::ManualClock clock; // the turn has no end in time
    constexpr int kFrames = 140'000;
    const std::string frame = frameOf("");
    for (int i = 0; i < kFrames; ++i)
        ASSERT_TRUE(queue.writeToQueue(frame.data(), frame.size()));
    queue.setQueueHandler(&yielding);
    std::thread consumer([&] {
        yielding.isResetWanted.wait(false);
        RoundLimit limit;
        const std::atomic<uint32_t> wanted{1};
        const std::atomic<int> mustExit{0};
        ServeTurn turn(ServeTurn::Alone, 2 * kFrames, limit, wanted, mustExit);
        queue.popFrames(turn);
    });
    std::thread producer([&] {
        yielding.isResetWanted = true;
        yielding.isResetWanted.notify_all();
        yielding.calls.wait(0);
        queue.reset();
    });
    producer.join();
    consumer.join();
    EXPECT_LT(yielding.calls, kFrames);
    EXPECT_TRUE(queue.isEmpty());
    queue.setQueueHandler(nullptr);
}

// A loss that follows has to begin with what still waits in the socket.
TEST_F(RingTest, WhatWaitsInTheSocketIsNotTakenForHeardThoughSomethingWasReadLater) {
    const tp::ManualClock clock;
    const std::string frame = frameOf(std::string(1'000 - 7, 'x'));
    feed(frame);
    popAll();
    const double drained = tp::Clock::monotonic();
    EXPECT_EQ(queue.deliveredUpTo(), drained);
    goToEnd(20'000); // so the next read ends with the ring
    const double behind = tp::Clock::monotonic();
    std::string many;
    for (int i = 0; i < 30; ++i)
        many += frame;
    tp::Clock::advance(10.0);
    socket.write(many);
    ASSERT_FALSE(readOnce());
    popAll();
    EXPECT_EQ(queue.deliveredUpTo(), behind);
    tp::Clock::advance(10.0);
    ASSERT_FALSE(readOnce());
    popAll();
    EXPECT_EQ(queue.deliveredUpTo(), tp::Clock::monotonic());
}

TEST_F(RingTest, FullRingDropsWhatTheSocketBringsAndFindsItsWayBack) {
    const std::string frame = frameOf(std::string(10000 - 7, 'x'));
    std::string many;
    for (int i = 0; i < 6; ++i)
        many += frame;
    uint64_t sent = 0;
    while (droppedIn() == 0) {
        socket.write(many);
        sent += many.size();
        for (int i = 0; i < 5; ++i)
            ASSERT_FALSE(readOnce());
    }
    // What is in the ring stays; the frame that the drop has cut is lost, and the stream goes on behind it.
    const std::size_t delivered = popAll();
    EXPECT_GE(delivered, 100U);
    EXPECT_LE(delivered * frame.size() + droppedIn(), sent);
    const std::string last = frameOf("1=last");
    feed(frame + frame + last);
    popAll();
    EXPECT_EQ(handler.frames.back(), last);
}

// Frames of one length, such as many streams have, and a drop that begins and ends in the same place of one.
TEST_F(RingTest, FrameThatADropHasCutIsNotJoinedWithTheRestOfAnotherOne) {
    const auto frameOfAll = [](char byte) { return frameOf(std::string(96 - 7, byte)); };
    const std::string cut = frameOfAll('a'), between = frameOfAll('b'), rest = frameOfAll('c');
    std::string whole;
    while (whole.size() + cut.size() <= kRing - Queue::MIN_AVAIL_LEN)
        whole += between;
    feed(whole);
    feed(cut.substr(0, 70));
    std::string dropped = cut.substr(70);
    while (dropped.size() + between.size() <= Queue::MIN_AVAIL_LEN)
        dropped += between;
    feed(dropped + rest.substr(0, 70));
    ASSERT_EQ(droppedIn(), Queue::MIN_AVAIL_LEN + 70);
    popAll();
    feed(rest.substr(70) + frameOf("1=last"));
    popAll();
    ASSERT_EQ(handler.frames.size(), whole.size() / between.size() + 1);
    EXPECT_EQ(handler.frames.back(), frameOf("1=last"));
    EXPECT_EQ(droppedIn(), dropped.size() + rest.size() + 70);
}

TEST_F(RingTest, GarbageThatFindsNoRoomCountsUntilAFrameEndsIt) {
    const std::string frame = frameOf("1=a"), garbage(20'000, 'g');
    feed(frame); // is never taken
    for (const bool hasFrames : {false, true}) {
        const std::string bytes = hasFrames ? garbage + frame : garbage;
        bool isClosed = false;
        for (std::size_t sent = 0; !isClosed && sent < 2 * kRing; sent += bytes.size()) {
            (void)queue.takeSignOfLife();
            socket.write(bytes);
            isClosed = readOnce();
        }
        EXPECT_EQ(isClosed, !hasFrames);
        EXPECT_EQ(queue.takeSignOfLife(), hasFrames);
    }
}

TEST_F(RingTest, CloseAndErrorEndTheReadsAndKeepWhatHasCome) {
    feed(frameOf("1=a"));
    EXPECT_FALSE(queue.sawEndOfStream());
    EXPECT_FALSE(readOnce());
    EXPECT_FALSE(queue.sawEndOfStream()) << "a socket without bytes hasn't ended";
    socket.hangUp();
    EXPECT_FALSE(readOnce());
    EXPECT_TRUE(queue.sawEndOfStream());
    EXPECT_EQ(popAll(), 1U);
    queue.reset();
    EXPECT_FALSE(queue.sawEndOfStream());
    EXPECT_FALSE(queue.readFromSocketThenWriteToQueue(-1, nullptr, 1.0));
    EXPECT_TRUE(queue.sawEndOfStream());
}

// Under the thread sanitizer too. The sender never has much more under way than half the ring.
TEST_F(RingTest, ProducerAndConsumerThreadsLoseNothing) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Frames sent;
    for (std::size_t bytes = 0; bytes < 20 * kRing; bytes += sent.back().size())
        sent.push_back(frameOf(std::string(random() % (random() % 50 == 0 ? 60000 : 300),
                                           static_cast<char>('a' + sent.size() % 26))));
    std::atomic<bool> done{false};
    uint64_t garbage = 0;
    std::thread producer([&] {
        for (std::string_view frame : sent) {
            if (random() % 20 == 0) {
                feed("garbage");
                garbage += 7;
            }
            for (queue.calcQueueFullStats(); queue.getPctFull() > 50; queue.calcQueueFullStats())
                std::this_thread::yield();
            while (!frame.empty()) {
                const std::size_t part = 1 + random() % frame.size();
                feed(frame.substr(0, part));
                frame.remove_prefix(part);
            }
        }
        done = true;
    });
    while (!done || !queue.isEmpty())
        queue.PopElement();
    producer.join();
    EXPECT_TRUE(handler.frames == sent);
    EXPECT_EQ(droppedIn(), garbage);
    EXPECT_EQ(droppedOut(), 0U);
}

// --- frames that the library puts in itself ---

TEST_F(RingTest, OwnFrameThatDoesNotFitIsRefusedAndNothingIsOverwritten) {
    const std::string frame = frameOf(std::string(99993, 'b')); // 100,000 bytes
    std::size_t written = 0;
    for (int round = 0; round < 40; ++round) {
        const std::size_t before = written;
        while (queue.writeToQueue(frame.data(), frame.size()))
            ++written;
        EXPECT_GT(written, before);
        ASSERT_TRUE(queue.PopElement());
        if (round % 3 == 0)
            popAll();
    }
    popAll();
    EXPECT_TRUE(handler.frames == Frames(written, frame));
    EXPECT_TRUE(queue.writeToQueue("", 0));
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.statistics().in.m_msgs_in.get(), 0U) << "this path counts nothing";
}

TEST_F(RingTest, WrappedOwnFrameStopsShortOfTheReader) {
    goToEnd(50);
    const std::string held = frameOf("1=held");
    ASSERT_TRUE(queue.writeToQueue(held.data(), held.size()));
    // The reader stands 50 bytes in front of the end: behind the wrap all but one byte up to it may be used.
    const std::string fits(kRing - held.size() - 1, 'x'), tooLong(fits.size() + 1, 'x');
    EXPECT_FALSE(queue.writeToQueue(tooLong.data(), tooLong.size()));
    EXPECT_TRUE(queue.writeToQueue(fits.data(), fits.size()));
    EXPECT_TRUE(queue.PopElement());
    EXPECT_EQ(handler.frames, (Frames{held}));
}
