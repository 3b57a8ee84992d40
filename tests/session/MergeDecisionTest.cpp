#include "session/MergeDecision.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

struct Answer {
    int64_t status;
    int pairs;

    bool operator<(const Answer& other) const {
        return std::pair(status, pairs) < std::pair(other.status, other.pairs);
    }
};
using Answers = std::vector<Answer>;

/// What the application sees of one hub's answer.
enum class Seen { Nothing, AsItIs, WithoutStatus, LowestStatus };

enum class Kind { Query, Series, Single };

/// What it should see, told from the end of the story: all answers are known.
std::vector<Seen> expected(Kind kind, bool isNews, const Answers& answers) {
    std::vector<Seen> seen(answers.size(), Seen::Nothing);
    if (kind == Kind::Query)
        seen.back() = Seen::LowestStatus;
    for (std::size_t i = 0; i < answers.size() && kind == Kind::Series; ++i) {
        if (i + 1 == answers.size())
            seen[i] = Seen::AsItIs;
        else if (answers[i].pairs >= 3)
            seen[i] = Seen::WithoutStatus;
    }
    if (kind == Kind::Single) {
        const auto carried = [=](const Answer& answer) {
            return answer.status != -997 && (!isNews || answer.status != -220);
        };
        const auto first = std::find_if(answers.begin(), answers.end(), carried);
        seen[std::min(static_cast<std::size_t>(first - answers.begin()), answers.size() - 1)] = Seen::AsItIs;
    }
    return seen;
}

/// The worst of all; a hub that does not carry a news item counts only when none does.
int64_t worst(bool isNews, Answers answers) {
    std::sort(answers.begin(), answers.end());
    for (const Answer& answer : answers) {
        if (!isNews || answer.status != -220)
            return answer.status;
    }
    return -220;
}

void merge(Kind kind, tivra::Commands command, bool isNews, const Answers& answers) {
    MergeQuestion question;
    question.command = command;
    question.isNews = isNews;
    std::vector<Seen> seen;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        question.status = answers[i].status;
        question.pairCount = answers[i].pairs;
        question.last = i + 1 == answers.size();
        const MergeDecision decision = decideMerge(question);
        EXPECT_FALSE(decision.finishEntitlement);
        question.lowestStatus = decision.lowestStatus;
        question.responseSent = decision.responseSent;
        if (decision.suppress)
            seen.push_back(Seen::Nothing);
        else if (decision.writeLowestStatus)
            seen.push_back(Seen::LowestStatus);
        else
            seen.push_back(decision.removeStatus ? Seen::WithoutStatus : Seen::AsItIs);
    }
    ASSERT_EQ(seen, expected(kind, isNews, answers));
    if (kind == Kind::Query) {
        ASSERT_EQ(question.lowestStatus, worst(isNews, answers));
    }
}

TEST(Merge, EveryCommandWithOneTwoAndThreeHubsInEveryOrderOfAnswers) {
    const std::set<int> queries{2, 3, 4, 5, 6, 12, 13, 18, 19, 22}; // a wildcard subscribe merges like one
    const std::set<int> series{10, 15};
    const Answer pool[] = {{-220, 2}, {-997, 2}, {-12, 2}, {0, 2}, {0, 3}, {5, 4}};
    std::size_t merged = 0;
    for (int command = 0; command < 24; ++command) {
        const Kind kind = queries.count(command) != 0  ? Kind::Query
                          : series.count(command) != 0 ? Kind::Series
                                                       : Kind::Single;
        for (const bool isNews : {false, true}) {
            for (std::size_t hubs = 1, orders = 6; hubs <= 3; ++hubs, orders *= 6) {
                for (std::size_t order = 0; order < orders; ++order, ++merged) {
                    Answers answers;
                    for (std::size_t rest = order, i = 0; i < hubs; ++i, rest /= 6)
                        answers.push_back(pool[rest % 6]);
                    SCOPED_TRACE(testing::Message() << command << (isNews ? " news " : " ") << order);
                    merge(kind, static_cast<tivra::Commands>(command), isNews, answers);
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
    EXPECT_EQ(merged, 24U * 2U * (6U + 36U + 216U));
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
