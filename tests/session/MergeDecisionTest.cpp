#include "session/routing/MergeDecision.h"

#include <string_view>
#include <vector>

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

/// What the application sees of one hub's answer.
enum class Seen { Nothing, AsItIs, WithoutStatus, LowestStatus };
using enum Seen;

struct Answer {
    int64_t status;
    Seen seen;
    int pairs = 2;
};

struct MergeCase {
    int line;
    std::vector<Answer> answers; ///< in the order in which they come
    int64_t lowest = 0;          ///< the status of a query's end
    bool isNews = false;
};

void merge(tivra::Commands command, const MergeCase& row) {
    SCOPED_TRACE(testing::Message() << "line " << row.line << " command " << command);
    MergeQuestion question;
    question.command = command;
    question.isNews = row.isNews;
    MergeDecision decision;
    for (std::size_t i = 0; i < row.answers.size(); ++i) {
        question.status = row.answers[i].status;
        question.pairCount = row.answers[i].pairs;
        question.last = i + 1 == row.answers.size();
        decision = decideMerge(question);
        EXPECT_FALSE(decision.finishEntitlement);
        question.lowestStatus = decision.lowestStatus;
        question.responseSent = decision.responseSent;
        const Seen seen = decision.suppress            ? Nothing
                          : decision.writeLowestStatus ? LowestStatus
                          : decision.removeStatus      ? WithoutStatus
                                                       : AsItIs;
        EXPECT_EQ(seen, row.answers[i].seen) << "answer " << i;
    }
    if (decision.writeLowestStatus) {
        EXPECT_EQ(decision.lowestStatus, row.lowest);
    }
}

TEST(Merge, EachCommandEndsByTheRuleOfItsKind) {
    const std::vector<MergeCase> query = {
        {__LINE__, {{5, LowestStatus, 4}}, 5},
        {__LINE__, {{0, Nothing, 3}, {-12, Nothing}, {5, LowestStatus}}, -12},
        {__LINE__, {{-12, Nothing}, {0, Nothing}, {-997, LowestStatus}}, -997},
        {__LINE__, {{-220, Nothing}, {-12, LowestStatus}}, -220},
        // A hub that does not carry a news item counts only when none does.
        {__LINE__, {{-220, Nothing}, {0, Nothing}, {-220, LowestStatus}}, 0, true},
        {__LINE__, {{-12, Nothing}, {-220, LowestStatus}}, -12, true},
        {__LINE__, {{-220, Nothing}, {-220, LowestStatus}}, -220, true},
    };
    const std::vector<MergeCase> series = {
        {__LINE__, {{0, WithoutStatus, 3}, {-12, Nothing}, {5, WithoutStatus, 4}, {0, AsItIs, 4}}},
        {__LINE__, {{0, WithoutStatus, 3}, {-220, AsItIs}}, 0, true},
    };
    const std::vector<MergeCase> single = {
        {__LINE__, {{-12, AsItIs}, {0, Nothing}, {-997, Nothing}}},
        {__LINE__, {{-997, Nothing}, {0, AsItIs}, {0, Nothing}}},
        {__LINE__, {{-997, Nothing}, {-997, AsItIs}}},
        {__LINE__, {{-220, AsItIs}, {0, Nothing}}},
        {__LINE__, {{-220, Nothing}, {-12, AsItIs}, {0, Nothing}}, 0, true},
        {__LINE__, {{-997, Nothing}, {-220, Nothing}, {-220, AsItIs}}, 0, true},
    };
    int command = 0;
    for (const char kind : std::string_view("11QQQQQ111S1QQ1S11QQ11Q1")) {
        for (const MergeCase& row : kind == 'Q' ? query : kind == 'S' ? series : single)
            merge(static_cast<tivra::Commands>(command), row);
        ++command;
    }
}

TEST(MergeEntitlementPort, NeverReachesTheApplicationAndOnlySuccessGoesOn) {
    MergeQuestion question;
    question.command = tivra::QUERYSNAP;
    question.isEntitlementPort = true;
    question.last = true;
    for (const int64_t status : {int64_t{0}, int64_t{-46}}) {
        question.status = status;
        const MergeDecision decision = decideMerge(question);
        EXPECT_TRUE(decision.suppress);
        EXPECT_EQ(decision.finishEntitlement, status == 0);
    }
}

} // namespace
