#include "receive/RoundLimit.h"

#include <gtest/gtest.h>

#include <tp/Clock.h>

using namespace tivra_internal;

namespace {

struct Calls {
    int quick; ///< that take no time, first
    double secondsOfSlow;
    int mostSlow; ///< that may pass until the limit is seen
};

class RoundLimitTest : public testing::TestWithParam<Calls> {};

TEST_P(RoundLimitTest, SlowCallsAreSeenAfterNoMoreThanTheQuickOnesBeforeAllow) {
    const tp::ManualClock clock;
    double now = tp::Clock::monotonic();
    RoundLimit limit;
    for (int i = 0; i < GetParam().quick; ++i)
        ASSERT_FALSE(limit.isReached());
    int slow = 0;
    do {
        // No other thread shows that time passes, as advance() would.
        tp::Clock::setManual(0.0, now += GetParam().secondsOfSlow);
        ++slow;
    } while (!limit.isReached());
    EXPECT_LE(slow, GetParam().mostSlow);
    EXPECT_GE(slow * GetParam().secondsOfSlow, 0.001) << "within the limit";
}

INSTANTIATE_TEST_SUITE_P(Receive, RoundLimitTest,
                         testing::Values(Calls{0, 0.002, 1}, Calls{0, 0.0003, 4}, Calls{1, 0.0003, 4},
                                         Calls{1000, 0.0003, 16}, Calls{1000, 0.00006, 17}));

} // namespace
