#include <memory>
#include <string>
#include <vector>

#include <tp/Clock.h>

#include "RingFixture.h"
#include "receive/QueueHub.h"

using namespace tivra_internal;

namespace {

class RecordingHub : public QueueHub {
public:
    int sendRequest(const char* text, timeval* timeout) override {
        EXPECT_EQ(timeout->tv_sec, 0);
        EXPECT_EQ(timeout->tv_usec, 100);
        if (fails)
            return -2;
        texts.emplace_back(text);
        return 1;
    }
    bool fails = false;
    std::vector<std::string> texts;
};

std::string report(int level) {
    return "5026=17|5022=ReportApiStats|13912=" + std::to_string(level);
}

using Texts = std::vector<std::string>;

/// A queue whose fill level tests set by putting in and taking out frames of one percent.
class FlowControlTest : public testing::Test {
protected:
    static constexpr size_t kPercent = 1048576 / 100;

    /// A queue that reports from a level on, if any.
    void make(int threshold, int reportsFrom = 0) {
        queue = std::make_unique<Queue>(1, false, &hub, threshold);
        queue->setQueueHandler(&handler);
        if (reportsFrom > 0)
            queue->setJit(reportsFrom);
        level = 0;
    }
    void fillTo(int percent) {
        const std::string frame = frameOf(std::string(kPercent - 7, 'x'));
        for (; level < percent; ++level)
            ASSERT_TRUE(queue->writeToQueue(frame.data(), frame.size()));
        for (; level > percent; --level)
            ASSERT_TRUE(queue->PopElement());
        handler.frames.clear();
        queue->calcQueueFullStats();
        EXPECT_EQ(queue->getPctFull(), percent);
    }
    [[nodiscard]] bool read(double wallClock = 1.0) {
        return queue->readFromSocketThenWriteToQueue(socket.fd(), nullptr, wallClock);
    }
    /// The level that reports go by is the peak of the interval.
    void endInterval() { queue->printStats(true, true, now += 1.0); }

    tp::ManualClock clock;
    RecordingHub hub;
    RecordingHandler handler;
    SocketPair socket{SOCK_NONBLOCK};
    std::unique_ptr<Queue> queue;
    int level = 0;
    double now = 5000.0;
};

} // namespace

TEST_F(FlowControlTest, EachBandIsReportedOnceOnTheWayUp) {
    make(101);
    fillTo(80);
    EXPECT_TRUE(hub.texts.empty()) << "conflation has not asked for it";
    make(101, 50);
    fillTo(49);
    EXPECT_TRUE(hub.texts.empty());
    fillTo(60);
    fillTo(70);
    EXPECT_EQ(hub.texts, (Texts{report(60)}));
    fillTo(80);
    fillTo(99);
    EXPECT_EQ(hub.texts, (Texts{report(60), report(80), report(99)}));
}

TEST_F(FlowControlTest, FallIsReportedOnceAndOpensTheBandsAgain) {
    make(101, 50);
    fillTo(60);
    hub.texts.clear();
    fillTo(20);
    EXPECT_TRUE(hub.texts.empty()) << "the interval's peak still stands";
    endInterval();
    EXPECT_EQ(queue->getPeakPctFull(), 60);
    fillTo(19);
    fillTo(18);
    EXPECT_EQ(hub.texts, (Texts{report(19)}));
    fillTo(55);
    EXPECT_EQ(hub.texts.size(), 2U);
}

TEST_F(FlowControlTest, ReportThatCannotBeSentIsTriedAgainAndAResetForgetsIt) {
    make(101, 25);
    hub.fails = true;
    fillTo(40);
    hub.fails = false;
    queue->calcQueueFullStats();
    queue->calcQueueFullStats();
    EXPECT_EQ(hub.texts, (Texts{report(40)}));
    // A reset forgets the band.
    hub.texts.clear();
    queue->reset();
    level = 0;
    endInterval();
    fillTo(10);
    EXPECT_TRUE(hub.texts.empty());
    fillTo(40);
    EXPECT_EQ(hub.texts.size(), 1U);
}

TEST_F(FlowControlTest, ReadsAreSuspendedBetweenTheThresholds) {
    make(70); // and 50 on the way down
    fillTo(90);
    EXPECT_FALSE(queue->readsSuspended()) << "never without a query";
    queue->incrQueryCount();
    EXPECT_TRUE(queue->readsSuspended()) << "at once";
    queue->incrQueryCount();
    fillTo(50);
    EXPECT_TRUE(queue->readsSuspended());
    fillTo(49);
    EXPECT_FALSE(queue->readsSuspended());
    fillTo(70);
    EXPECT_FALSE(queue->readsSuspended());
    fillTo(71);
    EXPECT_TRUE(queue->readsSuspended());
    queue->decrQueryCount();
    EXPECT_TRUE(queue->readsSuspended());
    queue->decrQueryCount();
    EXPECT_FALSE(queue->readsSuspended()) << "the last answer ends it";
}

TEST_F(FlowControlTest, QueueWithoutAWholeFrameIsNeverSuspended) {
    make(10);
    queue->incrQueryCount();
    // A quarter of the ring holds one frame that is not complete: only reading can help.
    const std::string partial = frameOf(std::string(262000, 'x')).substr(0, 261000);
    ASSERT_FALSE(queue->takeOver({partial.data(), partial.size()}));
    queue->calcQueueFullStats();
    EXPECT_GT(queue->getPctFull(), 20);
    EXPECT_FALSE(queue->readsSuspended());
}

TEST_F(FlowControlTest, SuspendedQueueReadsALittleNowAndThen) {
    make(10);
    std::string bytes;
    for (int i = 0; i < 100; ++i)
        bytes += frameOf(std::string(1000 - 7, 'x'));
    fillTo(30);
    socket.write(bytes);
    ASSERT_FALSE(read());
    queue->incrQueryCount();
    ASSERT_TRUE(queue->readsSuspended());
    socket.write(bytes);

    const auto bytesOfARead = [&](double wallClock = 1.0) {
        const uint64_t before = queue->statistics().in.m_bytes_in.get();
        EXPECT_FALSE(read(wallClock));
        return queue->statistics().in.m_bytes_in.get() - before;
    };
    tp::Clock::advance(54.9);
    EXPECT_EQ(bytesOfARead(), 0U);
    tp::Clock::advance(0.2);
    EXPECT_EQ(bytesOfARead(), 24000U) << "24,576 bytes hold 24 whole frames";
    EXPECT_EQ(bytesOfARead(), 0U);
    // A wall clock that steps must not force a read: the wait is measured by the other one.
    tp::Clock::stepWallClock(3600.0);
    EXPECT_EQ(bytesOfARead(3601.0), 0U);
    queue->reset();
    EXPECT_FALSE(queue->readsSuspended());
}

TEST_F(FlowControlTest, ForcedReadOfAFullRingTakesOneByteOrNone) {
    make(10);
    fillTo(99);
    queue->incrQueryCount();
    ASSERT_TRUE(queue->readsSuspended());
    socket.write("abc");
    // Less than a normal read needs is free, so the forced one goes byte by byte, and dropping is out of the
    // question: the bytes stay in the socket.
    tp::Clock::advance(100.0);
    EXPECT_FALSE(read());
    char left[8];
    EXPECT_EQ(::read(socket.fd(), left, sizeof left), 2);
    EXPECT_EQ(queue->statistics().in.cum_dropped_bytes.get(), 1U)
        << "the one byte is garbage, but it was read";
}
