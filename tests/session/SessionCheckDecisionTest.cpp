#include "session/SessionCheckDecision.h"

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

struct CheckCase {
    const char* what;
    HubCounts counts;
    CheckPath path;
    int ready;
    int notReady;
};

class SessionCheck : public testing::TestWithParam<CheckCase> {};

TEST_P(SessionCheck, TakesThePathOfTheFirstRowThatFits) {
    const CheckCase& c = GetParam();
    const CheckDecision decision = decideSessionCheck(c.counts);
    EXPECT_EQ(decision.path, c.path);
    EXPECT_EQ(decision.counts.ready, c.ready);
    EXPECT_EQ(decision.counts.notReady, c.notReady);
    EXPECT_EQ(decision.counts.pending, c.counts.pending);
}

// counts: downs, ready, notReady, pending
INSTANTIATE_TEST_SUITE_P(
    Rows, SessionCheck,
    testing::Values(CheckCase{"LossWhileANewHubWaits", {1, 2, 0, 1}, CheckPath::Partial, 2, 0},
                    CheckCase{"OnlyHubLostAndBackBeforeTheCheck", {1, 1, 0, 0}, CheckPath::Down, 0, 1},
                    CheckCase{"OneOfTwoLostAndBack", {1, 2, 0, 0}, CheckPath::Last, 1, 0},
                    CheckCase{"SeveralLossesCountOnce", {3, 2, 0, 0}, CheckPath::Last, 1, 0},
                    CheckCase{"NothingReady", {0, 0, 2, 0}, CheckPath::Down, 0, 2},
                    CheckCase{"NoHubAtAll", {0, 0, 0, 0}, CheckPath::Down, 0, 0},
                    CheckCase{"NoHubAtAllAfterALoss", {1, 0, 0, 0}, CheckPath::Down, 0, 0},
                    CheckCase{"LossStillVisible", {1, 1, 1, 0}, CheckPath::Last, 1, 1},
                    CheckCase{"OneMissing", {0, 3, 1, 0}, CheckPath::Last, 3, 1},
                    CheckCase{"OneMissingAndOnePending", {0, 3, 1, 1}, CheckPath::Last, 3, 1},
                    CheckCase{"TwoMissing", {0, 3, 2, 0}, CheckPath::Partial, 3, 2},
                    CheckCase{"OnlyPending", {0, 1, 0, 1}, CheckPath::Partial, 1, 0},
                    CheckCase{"AllReady", {0, 2, 0, 0}, CheckPath::AllReady, 2, 0}),
    [](const auto& row) { return row.param.what; });

} // namespace
