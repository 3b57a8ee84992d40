#include "receive/QueueStatistics.h"

#include <gtest/gtest.h>

#include "receive/Queue.h"

using namespace tivra_internal;

namespace {

/// Counters with a clock of 100 ms ticks.
class QueueStatisticsTest : public testing::Test {
protected:
    void tick(uint64_t msgs, uint64_t bytes, uint64_t dropped) {
        stats.in.m_msgs_in.add(msgs);
        stats.in.m_bytes_in.add(bytes);
        stats.in.cum_dropped_bytes.add(dropped);
        stats.calcStats(now += 0.1);
    }
    void tickOut(uint64_t msgs, uint64_t net) {
        stats.out.m_msgs_out.add(msgs);
        stats.out.m_net_msgs_out.add(net);
        stats.calcStatsOut(nowOut += 0.1);
    }

    QueueStatistics stats;
    double now = 1000.0, nowOut = 1000.0;
};

} // namespace

TEST_F(QueueStatisticsTest, SecondAndIntervalFiguresComeFromTheTicks) {
    tick(10, 1000, 0);
    tick(30, 6000, 0); // the peak: 300 messages a second
    tick(20, 2000, 0);
    stats.rotateSecond(now);
    EXPECT_EQ(stats.getInputMsgSec_100ms(), 300U);
    tick(90, 900, 0); // more messages, but fewer bytes: no peak of the interval
    stats.rotateSecond(now);
    ASSERT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsIn(), 150U);
    EXPECT_EQ(stats.getAvgMsgSize(), 9900U / 150U);
    EXPECT_EQ(stats.getInputMsgSec_1sec(), 90U);
    EXPECT_EQ(stats.getPeakInputMsgSec_1sec(), 60U) << "the second with the most bytes";
    EXPECT_EQ(stats.getPeakInputMsgSec_100ms(), 300U);
    EXPECT_EQ(stats.getInputMsgSec_100ms(), 900U);
    // Everything has been handed on: a silent interval reports silence.
    stats.rotateSecond(now);
    ASSERT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getPeakInputMsgSec_1sec(), 0U);
    EXPECT_EQ(stats.getPeakInputMsgSec_100ms(), 0U);
    EXPECT_EQ(stats.getInputMsgSec_1sec(), 0U);
    EXPECT_EQ(stats.getMsgsIn(), 150U);
}

TEST_F(QueueStatisticsTest, DroppedBytesCountAsTheMessagesTheyWere) {
    tick(10, 1000, 500); // 100 bytes a message
    stats.rotateSecond(now);
    ASSERT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsIn(), 15U);
    EXPECT_EQ(stats.getValidMsgsIn(), 10U);
    EXPECT_EQ(stats.getInputMsgSec_1sec(), 15U);
    EXPECT_EQ(stats.getPeakInputMsgSec_1sec(), 15U);
    EXPECT_EQ(stats.getPeakInputMsgSec_100ms(), 150U);
    EXPECT_EQ(stats.getInputMsgSec_100ms(), 150U);
    // Only drops in an interval: the mean of the last one holds.
    tick(0, 0, 300);
    stats.rotateSecond(now);
    ASSERT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsIn(), 18U);
    stats.out.cum_out_dropped_bytes.add(7);
    stats.calcStatsOut(now);
    stats.sumDrops();
    EXPECT_EQ(stats.getDroppedBytes(), 807U);
}

TEST_F(QueueStatisticsTest, OutputPeaksStandEachOnItsOwn) {
    tickOut(50, 10);
    tickOut(20, 40);
    stats.rotateSecond(now);
    EXPECT_EQ(stats.getOutputMsgSec_100ms(), 500U);
    EXPECT_EQ(stats.getNetOutputMsgSec_100ms(), 400U);
    ASSERT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsOut(), 70U);
    EXPECT_EQ(stats.getNetMsgsOut(), 50U);
    EXPECT_EQ(stats.getOutputMsgSec_1sec(), 70U);
    EXPECT_EQ(stats.getNetOutputMsgSec_1sec(), 50U);
    EXPECT_EQ(stats.getPeakOutputMsgSec_100ms(), 500U);
    EXPECT_EQ(stats.getPeakNetOutputMsgSec_100ms(), 400U);
    EXPECT_EQ(stats.getPeakOutputMsgSec_1sec(), 70U);
    EXPECT_EQ(stats.getPeakNetOutputMsgSec_1sec(), 50U);
}

TEST_F(QueueStatisticsTest, ClockThatStandsOrStepsBackGivesNoWildRate) {
    tick(10, 1000, 0);
    for (const double step : {0.0, -3600.0, 1e-9}) {
        stats.in.m_msgs_in.add(10);
        stats.in.m_bytes_in.add(5000);
        stats.calcStats(now += step);
        stats.rotateSecond(now);
        EXPECT_EQ(stats.getInputMsgSec_100ms(), 100U) << step;
    }
}

TEST_F(QueueStatisticsTest, ZeroMeanSizeStopsTheReportAndLosesNoCounts) {
    tick(10, 5, 0);
    EXPECT_FALSE(stats.rotateInterval(now));
    tick(0, 995, 0);
    EXPECT_TRUE(stats.rotateInterval(now));
    EXPECT_EQ(stats.getMsgsIn(), 10U);
}

TEST(QueuePrintStats, NeitherFlagChangesNothingButTheSumOfDrops) {
    Queue queue(1, false, nullptr, 70);
    queue.updateHubDrops(42);
    queue.printStats(false, false, 0.0);
    EXPECT_EQ(queue.getHubDroppedBytes(), 42U);
    EXPECT_EQ(queue.getMsgsIn(), 0U);
}
