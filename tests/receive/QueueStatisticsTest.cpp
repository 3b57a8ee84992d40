#include "receive/QueueStatistics.h"

#include <vector>

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

/// Counters with a clock of 100 ms ticks.
class QueueStatisticsTest : public testing::Test {
protected:
    using Figures = std::vector<uint64_t>;

    void tick(uint64_t msgs, uint64_t bytes, uint64_t dropped = 0) {
        stats.in.m_msgs_in.add(msgs);
        stats.in.m_bytes_in.add(bytes);
        stats.in.cum_dropped_bytes.add(dropped);
        stats.calcStats(now += 0.1);
    }
    void endInterval() {
        stats.rotateSecond(now);
        ASSERT_TRUE(stats.rotateInterval(now));
    }
    /// Messages in all, in the last second, in the busiest second and tick of the interval, in the last
    /// second's busiest tick.
    Figures input() {
        return {stats.getMsgsIn(), stats.getInputMsgSec_1sec(), stats.getPeakInputMsgSec_1sec(),
                stats.getPeakInputMsgSec_100ms(), stats.getInputMsgSec_100ms()};
    }

    QueueStatistics stats;
    double now = 1000.0;
};

} // namespace

TEST_F(QueueStatisticsTest, SecondAndIntervalFiguresComeFromTheTicks) {
    tick(10, 1000);
    tick(30, 6000); // the peak: 300 messages a second
    tick(20, 2000);
    stats.rotateSecond(now);
    EXPECT_EQ(stats.getInputMsgSec_100ms(), 300U);
    tick(90, 900); // more messages, but fewer bytes: no peak of the interval
    endInterval();
    EXPECT_EQ(input(), (Figures{150, 90, 60, 300, 900})) << "the peaks are those with the most bytes";
    EXPECT_EQ(stats.getAvgMsgSize(), 9900U / 150U);
    // Everything has been handed on: a silent interval reports silence.
    endInterval();
    EXPECT_EQ(input(), (Figures{150, 0, 0, 0, 0}));
    tick(7, 70);
    endInterval();
    EXPECT_EQ(input(), (Figures{157, 7, 7, 70, 70})) << "the peak is this interval's";
}

TEST_F(QueueStatisticsTest, DroppedBytesCountAsTheMessagesTheyWere) {
    tick(10, 1000, 500); // 100 bytes a message
    endInterval();
    EXPECT_EQ(input(), (Figures{15, 15, 15, 150, 150}));
    EXPECT_EQ(stats.getValidMsgsIn(), 10U);
    // Only drops in an interval: the mean of the last one holds.
    tick(0, 0, 300);
    endInterval();
    EXPECT_EQ(stats.getMsgsIn(), 18U);
    stats.out.cum_out_dropped_bytes.add(7);
    stats.calcStatsOut(now);
    stats.sumDrops();
    EXPECT_EQ(stats.getDroppedBytes(), 807U);
}

TEST_F(QueueStatisticsTest, BusiestMomentIsTheOneOfTheMostBytesDroppedOrNot) {
    tick(10, 1000);
    tick(20, 1000);
    stats.rotateSecond(now);
    EXPECT_EQ(stats.getInputMsgSec_100ms(), 100U) << "of two alike the first";
    tick(10, 2000, 2500);
    endInterval();
    EXPECT_EQ(stats.getAvgMsgSize(), 100U);
    EXPECT_EQ(input(), (Figures{40 + 25, 10 + 25, 10 + 25, 100 + 250, 100 + 250}));
}

TEST_F(QueueStatisticsTest, ClockThatStandsOrStepsBackGivesNoWildRate) {
    tick(10, 1000);
    for (const double step : {0.0, -3600.0, 1e-9}) {
        now += step - 0.1;
        tick(10, 5000);
        stats.rotateSecond(now);
        EXPECT_EQ(stats.getInputMsgSec_100ms(), 100U) << step;
    }
    // A thousandth of a second is the least that counts, and no rate is above 1e15.
    const struct {
        double elapsed;
        uint64_t msgs, rate;
    } cases[] = {
        {1.0 / 1024, 10, 100}, {1.0 / 512, 10, 5120}, {1.0 / 512, 4'000'000'000'000, 1'000'000'000'000'000}};
    for (const auto& c : cases) {
        now = 2000.0 - 0.1;
        tick(0, 0);
        now = 2000.0 + c.elapsed - 0.1;
        tick(c.msgs, 1000);
        stats.rotateSecond(now);
        EXPECT_EQ(stats.getInputMsgSec_100ms(), c.rate) << c.elapsed;
    }
}

TEST_F(QueueStatisticsTest, ZeroMeanSizeStopsTheReportAndLosesNoCounts) {
    tick(10, 5);
    EXPECT_FALSE(stats.rotateInterval(now));
    tick(0, 995);
    EXPECT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsIn(), 10U);
}
