#include "hub/RetryPace.h"

#include <gtest/gtest.h>

namespace tivra_internal {
namespace {

TEST(RetryPace, WaitsTwiceAsLongAfterEachRefusalUpToALimitAndAFifthMoreByChance) {
    double chance = 0.0;
    RetryPace pace([&chance] { return chance; });
    EXPECT_TRUE(pace.mayDial(0.0));
    for (int round = 0; round < 2; ++round) {
        double now = 1000.0;
        for (const double wait : {1.0, 2.0, 4.0, 8.0, 16.0, 30.0, 30.0}) {
            chance = round;
            EXPECT_DOUBLE_EQ(pace.refused(now), wait * (1.0 + 0.2 * round));
            now += wait * (1.0 + 0.2 * round);
            EXPECT_FALSE(pace.mayDial(now - 0.01));
            EXPECT_TRUE(pace.mayDial(now));
        }
        pace.accepted();
    }
}

} // namespace
} // namespace tivra_internal
