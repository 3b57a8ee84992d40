#include "session/MergeDecision.h"

#include <vector>

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

struct Answer {
    int64_t status;
    int pairs = 2;
};

/// What the application sees of one hub's answer.
enum class Seen { Nothing, AsItIs, WithoutStatus, LowestStatus };

struct MergeCase {
    const char* what;
    tivra::Commands command;
    bool isNews;
    std::vector<Answer> answers;
    std::vector<Seen> seen;
    int64_t finalStatus; ///< of the message with the lowest status
};

class Merge : public testing::TestWithParam<MergeCase> {};

TEST_P(Merge, LetsThroughWhatTheApplicationExpects) {
    const MergeCase& c = GetParam();
    MergeQuestion question;
    question.command = c.command;
    question.isNews = c.isNews;
    for (std::size_t i = 0; i < c.answers.size(); ++i) {
        question.status = c.answers[i].status;
        question.pairCount = c.answers[i].pairs;
        question.last = i + 1 == c.answers.size();
        const MergeDecision decision = decideMerge(question);
        question.lowestStatus = decision.lowestStatus;
        question.responseSent = decision.responseSent;
        Seen seen = Seen::Nothing;
        if (!decision.suppress && decision.writeLowestStatus)
            seen = Seen::LowestStatus;
        else if (!decision.suppress)
            seen = decision.removeStatus ? Seen::WithoutStatus : Seen::AsItIs;
        EXPECT_EQ(seen, c.seen[i]) << "answer " << i;
        EXPECT_FALSE(decision.finishEntitlement);
        if (seen == Seen::LowestStatus) {
            EXPECT_EQ(decision.lowestStatus, c.finalStatus);
        }
    }
}

constexpr Seen kNo = Seen::Nothing;

INSTANTIATE_TEST_SUITE_P(
    Table, Merge,
    testing::Values(
        MergeCase{"SnapOfOneHub", tivra::QUERYSNAP, false, {{5}}, {Seen::LowestStatus}, 5},
        MergeCase{"XrefWorstStatusComesLast",
                  tivra::QUERYXREF,
                  false,
                  {{0}, {-3}, {0}},
                  {kNo, kNo, Seen::LowestStatus},
                  -3},
        MergeCase{"WildcardSubscribeMergesLikeAQuery",
                  tivra::SUBSCRIBEWILDCARD,
                  false,
                  {{-7}, {0}},
                  {kNo, Seen::LowestStatus},
                  -7},
        MergeCase{"NewsKnownByOneHub",
                  tivra::QUERYSNAP,
                  true,
                  {{-220}, {0}, {-220}},
                  {kNo, kNo, Seen::LowestStatus},
                  0},
        MergeCase{
            "NewsKnownByNone", tivra::QUERYSNAP, true, {{-220}, {-220}}, {kNo, Seen::LowestStatus}, -220},
        MergeCase{"NotCarriedCountsWhenItIsNoNews",
                  tivra::QUERYSNAP,
                  false,
                  {{-220}, {0}},
                  {kNo, Seen::LowestStatus},
                  -220},
        MergeCase{"ListOfOneHub", tivra::LISTENUMERATION, false, {{0}}, {Seen::AsItIs}, 0},
        MergeCase{"ClientsOfTwoHubs",
                  tivra::GETACTIVECLIENTSINFO,
                  false,
                  {{0, 5}, {0, 4}},
                  {Seen::WithoutStatus, Seen::AsItIs},
                  0},
        MergeCase{"SecondHubWithoutClients",
                  tivra::GETACTIVECLIENTSINFO,
                  false,
                  {{0, 5}, {0, 2}},
                  {Seen::WithoutStatus, Seen::AsItIs},
                  0},
        MergeCase{"FirstHubWithoutExchanges",
                  tivra::LISTEXTENDEDEXCHANGEINFO,
                  false,
                  {{0, 2}, {0, 3}},
                  {kNo, Seen::AsItIs},
                  0},
        MergeCase{"FirstAnswerOfASubscribe",
                  tivra::SUBSCRIBE,
                  false,
                  {{0}, {-4}, {0}},
                  {Seen::AsItIs, kNo, kNo},
                  0},
        MergeCase{"FirstUsefulAnswerOnNews",
                  tivra::SUBSCRIBE,
                  true,
                  {{-220}, {0}, {0}},
                  {kNo, Seen::AsItIs, kNo},
                  0},
        MergeCase{"NewsNobodyCarries", tivra::SUBSCRIBE, true, {{-220}, {-220}}, {kNo, Seen::AsItIs}, 0},
        MergeCase{"NewsAnswerIsNotRepeatedByTheLast",
                  tivra::SUBSCRIBE,
                  true,
                  {{0}, {-220}},
                  {Seen::AsItIs, kNo},
                  0}),
    [](const auto& row) { return row.param.what; });

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
