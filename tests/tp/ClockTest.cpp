#include <tp/Clock.h>

#include <gtest/gtest.h>

namespace {

using tp::Clock;

TEST(Clock, StandsUntilItIsMovedAndTheWallAloneSteps) {
    const tp::ManualClock clock(5000.0);
    const double start = Clock::monotonic();
    Clock::advance(2.5);
    EXPECT_DOUBLE_EQ(Clock::now(), 5002.5);
    EXPECT_DOUBLE_EQ(Clock::monotonic(), start + 2.5);
    Clock::stepWallClock(-100.0);
    EXPECT_DOUBLE_EQ(Clock::now(), 4902.5);
    EXPECT_DOUBLE_EQ(Clock::monotonic(), start + 2.5);
}

TEST(Clock, RunsOnAfterAnAdvanceAndReturnsToTheSystemsTime) {
    const double wall = Clock::now();
    const double monotonic = Clock::monotonic();
    Clock::advance(1000.0);
    EXPECT_GE(Clock::now(), wall + 1000.0);
    EXPECT_GE(Clock::monotonic(), monotonic + 1000.0);
    Clock::setReal();
    EXPECT_LT(Clock::now(), wall + 999.0);
    EXPECT_LT(Clock::monotonic(), monotonic + 999.0);
    EXPECT_GT(Clock::now(), 1.7e9);
}

} // namespace
