#include <memory>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <tp/Clock.h>

#include "RingFixture.h"
#include "receive/QueueHub.h"
#include "support/LogCapture.h"

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
    void roomForReads() override { ++wakes; }
    void queueIsDeep(int) override {}
    bool fails = false;
    int wakes = 0;
    std::vector<std::string> texts;
};

std::string report(int level) {
    return "5026=17|5022=ReportApiStats|13912=" + std::to_string(level);
}

using Texts = std::vector<std::string>;

/// A queue whose fill level tests set by putting in and taking out frames of one percent.
class FlowControlTest : public testing::Test {
protected:
    static constexpr std::size_t kRing = 1048576;
    static constexpr std::size_t kPercent = kRing / 100;

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
    /// The least number of bytes that counts as that many percent: half a percent is rounded up.
    static constexpr std::size_t leastOf(int percent) {
        return (static_cast<std::size_t>(percent) * kRing - kRing / 2 + 99) / 100;
    }
    /// Puts in frames of that many bytes in all; returns how many frames.
    std::size_t put(std::size_t bytes) {
        std::size_t frames = 0;
        for (; bytes > 0; ++frames) {
            const std::size_t size = bytes > 300'000 ? 200'000 : bytes;
            const std::string frame = frameOf(std::string(size - 7, 'x'));
            EXPECT_TRUE(queue->writeToQueue(frame.data(), frame.size()));
            bytes -= size;
        }
        return frames;
    }
    void pop(std::size_t frames) {
        for (; frames > 0; --frames)
            EXPECT_TRUE(queue->PopElement());
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
    for (const int threshold : {1, 24, 25, 26, 50, 74, 75}) {
        make(101, threshold);
        Texts expected{report(threshold)};
        for (const int band : {25, 50, 75, 99})
            if (band > threshold)
                expected.push_back(report(band));
        for (int percent = 1; percent < 100; ++percent)
            fillTo(percent);
        EXPECT_EQ(hub.texts, expected);
        hub.texts.clear();
    }
    // A jump tells the band that it lands in.
    make(101, 25);
    fillTo(80);
    fillTo(98);
    fillTo(100);
    EXPECT_EQ(hub.texts, (Texts{report(80), report(100)}));
}

TEST_F(FlowControlTest, FallIsReportedOnceAndOpensTheBandsAgain) {
    make(101, 50);
    fillTo(60);
    hub.texts.clear();
    fillTo(20);
    EXPECT_TRUE(hub.texts.empty()) << "the interval's peak still stands";
    fillTo(50);
    endInterval();
    EXPECT_EQ(queue->getPeakPctFull(), 60);
    fillTo(50);
    EXPECT_TRUE(hub.texts.empty()) << "the threshold itself is no fall";
    endInterval();
    fillTo(49);
    fillTo(48);
    EXPECT_EQ(hub.texts, (Texts{report(49)}));
    fillTo(50);
    EXPECT_EQ(hub.texts, (Texts{report(49), report(50)}));
}

TEST_F(FlowControlTest, ReportThatCannotBeSentIsTriedAgainAndAResetForgetsIt) {
    make(101, 25);
    hub.fails = true;
    fillTo(40);
    hub.fails = false;
    queue->calcQueueFullStats();
    queue->calcQueueFullStats();
    EXPECT_EQ(hub.texts, (Texts{report(40)}));
    // A reset forgets the band and the level.
    hub.texts.clear();
    queue->reset();
    EXPECT_EQ(queue->getPctFull(), 0);
    level = 0;
    endInterval();
    fillTo(10);
    EXPECT_TRUE(hub.texts.empty());
    fillTo(40);
    EXPECT_EQ(hub.texts.size(), 1U);
}

TEST_F(FlowControlTest, ReadsAreSuspendedForTheTimeOfAQuery) {
    make(70);
    fillTo(90);
    EXPECT_FALSE(queue->readsSuspended()) << "never without a query";
    queue->incrQueryCount();
    EXPECT_TRUE(queue->readsSuspended()) << "at once";
    queue->incrQueryCount();
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

/// One read may fill the ring before its reader has seen any of it, and a threshold may leave no room for the
/// next one: either way what comes waits, and the reader says when it can go on.
TEST_F(FlowControlTest, NothingIsDroppedWhileAnAnswerIsDue) {
    constexpr std::size_t FRAMES = 4'000;
    const int fd = ::memfd_create("stream", MFD_CLOEXEC);
    for (std::size_t i = 0; i < FRAMES; ++i) {
        const std::string frame = frameOf(std::string(993, 'x'));
        ASSERT_EQ(::write(fd, frame.data(), frame.size()), 1'000);
    }
    for (const int threshold : {10, 70, 99, 101}) {
        SCOPED_TRACE(threshold);
        make(threshold);
        queue->incrQueryCount();
        ::lseek(fd, 0, SEEK_SET);
        int holds = 0;
        for (int turn = 0; turn < 10'000 && !queue->sawEndOfStream(); ++turn) {
            ASSERT_FALSE(queue->readFromSocketThenWriteToQueue(fd, nullptr, 1.0));
            if (!queue->readsSuspended() || !queue->awaitRoom())
                continue;
            for (++holds, hub.wakes = 0; hub.wakes == 0 && !queue->isEmpty();)
                queue->PopElement();
            queue->calcQueueFullStats();
            ASSERT_FALSE(queue->readsSuspended());
            ASSERT_EQ(hub.wakes, 1);
        }
        EXPECT_GT(holds, 2);
        while (!queue->isEmpty())
            queue->PopElement();
        EXPECT_EQ(handler.frames.size(), FRAMES);
        EXPECT_EQ(queue->statistics().in.cum_dropped_bytes.get(), 0U);
        handler.frames.clear();
    }
    ::close(fd);
}

TEST_F(FlowControlTest, HeldReadIsForcedOnceByTheAgeOfTheLastOneAndAtOnceOnANewConnection) {
    const struct {
        double age;
        const char* line; // or null for no read
    } cases[] = {
        {54.875, nullptr},
        {55.0, "DBUG: : Force read after 55.000000 secs; m_pct_full=30 "},
        {60.0, "DBUG: : Force read after 60.000000 secs; m_pct_full=30 "},
        {60.125, "INFO: : Force read after 60.125000 secs; m_pct_full=30; client is reading too slow"}};
    const std::string frame = frameOf("1=1");
    for (const auto& c : cases) {
        make(10);
        fillTo(30);
        const auto messages = [&] { return queue->statistics().in.m_msgs_in.get(); };
        socket.write(frame);
        ASSERT_FALSE(read());
        queue->incrQueryCount();
        socket.write(frame);
        tp::Clock::advance(c.age);
        LogCapture log;
        EXPECT_FALSE(read(1.0 + c.age));
        EXPECT_EQ(log.lines(), c.line != nullptr ? Texts{c.line} : Texts());
        // A wall clock that steps must not force a read: the wait is measured by the other one.
        tp::Clock::stepWallClock(3600.0);
        socket.write(frame);
        EXPECT_FALSE(read(3601.0 + c.age));
        EXPECT_EQ(messages(), c.line != nullptr ? 2U : 1U);
        queue->decrQueryCount();
        EXPECT_FALSE(read()) << "the last answer ends the hold";
        EXPECT_EQ(messages(), 3U);
        queue->reset();
        level = 0;
        fillTo(30);
        queue->incrQueryCount();
        ASSERT_TRUE(queue->readsSuspended());
        socket.write(frame);
        EXPECT_FALSE(read());
        EXPECT_EQ(messages(), 4U);
    }
}

TEST_F(FlowControlTest, SuspensionHoldsToTheByte) {
    const struct { int threshold, down; } cases[] = {{70, 50}, {10, 1}, {21, 1}, {22, 2}, {99, 79}};
    for (const auto& c : cases) {
        for (const std::size_t less : {0U, 1U}) {
            make(c.threshold);
            put(leastOf(c.threshold + 1) - less);
            queue->incrQueryCount();
            EXPECT_EQ(queue->readsSuspended(), less == 0) << c.threshold << " up";

            make(c.threshold);
            const std::size_t rest = leastOf(c.down) - less;
            const std::size_t first = put(leastOf(c.threshold + 1) - rest);
            put(rest);
            queue->incrQueryCount();
            ASSERT_TRUE(queue->readsSuspended());
            pop(first);
            queue->calcQueueFullStats();
            EXPECT_EQ(queue->readsSuspended(), less == 0) << c.threshold << " down";

            make(101, c.down);
            put(leastOf(c.down) - less);
            queue->calcQueueFullStats();
            EXPECT_EQ(hub.texts.size(), less == 0 ? 1U : 0U) << c.down << " reported";
            hub.texts.clear();
        }
    }
    make(101);
    put(kRing);
    queue->incrQueryCount();
    EXPECT_FALSE(queue->readsSuspended()) << "a threshold that nothing passes";
}

/// Whether a read goes ahead hangs on the room in all, how much it may bring on the room in one piece.
TEST_F(FlowControlTest, RoomDecidesOverAReadToTheByte) {
    const struct {
        std::size_t start; // where the reader stands
        std::size_t free;
        bool isRoom;
        int forced; // bytes that a forced read takes
    } cases[] = {
        {0, 24'576, true, 24'576},  {0, 24'575, false, 1},           {0, 1, false, 1},
        {0, 0, false, 0},           {20'000, 24'576, true, 4576},    {20'000, 24'575, false, 1},
        {20'000, 20'000, false, 1}, {400'000, 24'576, true, 24'576}, {400'000, 24'575, false, 1},
        {400'000, 1, false, 1},     {400'000, 0, false, 0},
    };
    const auto fill = [this](std::size_t start, std::size_t free) {
        queue->setQueueHandler(&handler);
        if (start > 0)
            pop(put(start));
        // Once it has wrapped, one byte stays free.
        put(kRing - free - (start + kRing - free > kRing ? 1 : 0));
    };
    const std::string frame = frameOf(std::string(93, 'y'));
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.free) + " free from " + std::to_string(c.start));
        queue = std::make_unique<Queue>(1, false, nullptr, 10);
        fill(c.start, c.free);
        socket.write(frame);
        EXPECT_FALSE(read());
        EXPECT_EQ(queue->statistics().in.m_msgs_in.get(), c.isRoom ? 1U : 0U);
        EXPECT_EQ(queue->statistics().in.cum_dropped_bytes.get(), c.isRoom ? 0U : 100U);

        queue = std::make_unique<Queue>(1, false, nullptr, 10);
        fill(c.start, c.free);
        queue->incrQueryCount();
        ASSERT_TRUE(queue->readsSuspended());
        socket.write(std::string(30'000, 'z'));
        EXPECT_FALSE(read());
        char left[30'000];
        EXPECT_EQ(::read(socket.fd(), left, sizeof left), 30'000 - c.forced);
    }
}
