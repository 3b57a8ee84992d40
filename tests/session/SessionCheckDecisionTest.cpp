#include "session/lifecycle/SessionCheckDecision.h"

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

TEST(SessionCheck, TakesThePathOfTheFirstRowThatFits) {
    // counts: downs, ready, notReady, pending
    const CheckCase cases[] = {{"LossWhileANewHubWaits", {1, 2, 0, 1}, CheckPath::Partial, 2, 0},
                               {"OnlyHubLostAndBackBeforeTheCheck", {1, 1, 0, 0}, CheckPath::Down, 0, 1},
                               {"OneOfTwoLostAndBack", {1, 2, 0, 0}, CheckPath::Last, 1, 0},
                               {"SeveralLossesCountOnce", {3, 2, 0, 0}, CheckPath::Last, 1, 0},
                               {"NothingReady", {0, 0, 2, 0}, CheckPath::Down, 0, 2},
                               {"NoHubAtAll", {0, 0, 0, 0}, CheckPath::Down, 0, 0},
                               {"NoHubAtAllAfterALoss", {1, 0, 0, 0}, CheckPath::Down, 0, 0},
                               {"LossStillVisible", {1, 1, 1, 0}, CheckPath::Last, 1, 1},
                               {"OneMissing", {0, 3, 1, 0}, CheckPath::Last, 3, 1},
                               {"OneMissingAndOnePending", {0, 3, 1, 1}, CheckPath::Last, 3, 1},
                               {"TwoMissing", {0, 3, 2, 0}, CheckPath::Partial, 3, 2},
                               {"OnlyPending", {0, 1, 0, 1}, CheckPath::Partial, 1, 0},
                               {"AllReady", {0, 2, 0, 0}, CheckPath::AllReady, 2, 0}};
    for (const CheckCase& row : cases) {
        SCOPED_TRACE(row.what);
        const CheckDecision decision = decideSessionCheck(row.counts);
        EXPECT_EQ(decision.path, row.path);
        EXPECT_EQ(decision.counts.ready, row.ready);
        EXPECT_EQ(decision.counts.notReady, row.notReady);
        EXPECT_EQ(decision.counts.pending, row.counts.pending);
    }
}

} // namespace
