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

} // namespace
