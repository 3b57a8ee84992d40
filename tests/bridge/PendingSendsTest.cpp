#include "SendResults.h"

#include "nats/NatsAnswer.h"
#include "nats/PendingSends.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using namespace tivra_bus;
using Outcome = SendResult::Outcome;

TEST(NatsAnswer, EachAnswerOfAServerIsUnderstood) {
    struct Case {
        const char* answer;
        Outcome outcome;
        std::uint64_t position;
    };
    for (const Case& each :
         {Case{R"({"stream":"S","seq":7})", Outcome::Stored, 7},
          Case{R"({"seq": 8 ,"x":[]})", Outcome::Stored, 8},
          Case{R"({"error":{"code":400,"err_code":10071,"description":"wrong last sequence: 3"},"seq":0})",
               Outcome::Conflict, 0},
          Case{R"({"error":{"code":503,"err_code":10077,"description":"full"}})", Outcome::Failed, 0},
          Case{R"({"error":{"code":400,"err_code":10054,"description":"too big"}})", Outcome::TooBig, 0},
          Case{R"({"error":7})", Outcome::Failed, 0}, Case{R"({"seq":-1})", Outcome::Failed, 0},
          Case{R"({"seq":7)", Outcome::Failed, 0}, Case{"", Outcome::Failed, 0},
          Case{"\xff{", Outcome::Failed, 0}}) {
        const SendResult result = acknowledgementOf(each.answer);
        EXPECT_EQ(result.outcome, each.outcome) << each.answer;
        EXPECT_EQ(result.position, each.position) << each.answer;
    }
}

TEST(PendingSends, EachIsEndedOnceInWhateverOrderAnswersCome) {
    PendingSends sends(std::chrono::seconds(60));
    const auto listener = std::make_shared<Results>();
    std::vector<std::uint64_t> numbers;
    for (std::uint64_t tag = 0; tag < 4; ++tag)
        numbers.push_back(sends.add({listener, tag}));
    for (const std::size_t i : {2U, 0U, 2U, 0U, 1U})
        sends.end(numbers[i], {Outcome::Stored, 1, 0, {}});
    sends.end(numbers[3] + 1, {});
    sends.failed(numbers[3], {Outcome::TooBig, 0, 0, {}});
    EXPECT_EQ(sends.count(), 1U);
    sends.expire();
    sends.expire();
    const std::vector<std::pair<std::uint64_t, Outcome>> wanted{
        {2, Outcome::Stored}, {0, Outcome::Stored}, {1, Outcome::Stored}, {3, Outcome::TooBig}};
    EXPECT_EQ(listener->results, wanted);
    EXPECT_EQ(sends.count(), 0U);
}

TEST(PendingSends, WhatIsNeverAnsweredFailsOnce) {
    PendingSends sends(std::chrono::milliseconds(1));
    const auto listener = std::make_shared<Results>();
    (void)sends.add({listener, 0});
    const auto deadline = PendingSends::Clock::now() + std::chrono::seconds(30);
    while (listener->results.empty() && PendingSends::Clock::now() < deadline) {
        sends.expire();
        std::this_thread::yield();
    }
    sends.expire();
    ASSERT_EQ(listener->results.size(), 1U);
    EXPECT_EQ(listener->results[0].second, Outcome::Failed);
}

TEST(PendingSends, WhatFailsTogetherIsEndedOnceAndLeavesOutWhatWasAnswered) {
    PendingSends sends(std::chrono::seconds(60));
    const auto listener = std::make_shared<Results>();
    std::vector<std::uint64_t> numbers;
    for (std::uint64_t tag = 0; tag < 3; ++tag)
        numbers.push_back(sends.add({listener, tag}));
    sends.end(numbers[1], {Outcome::Stored, 1, 0, {}});
    sends.failAll({Outcome::Failed, 0, 0, "nobody"});
    numbers.push_back(sends.add({listener, 3}));
    sends.end(numbers[0], {Outcome::Stored, 1, 0, {}}); // its answer comes after all
    sends.end(numbers[3], {Outcome::Stored, 2, 0, {}});
    sends.expire();
    const std::vector<std::pair<std::uint64_t, Outcome>> wanted{
        {1, Outcome::Stored}, {3, Outcome::Stored}, {0, Outcome::Failed}, {2, Outcome::Failed}};
    EXPECT_EQ(listener->results, wanted);
    EXPECT_EQ(sends.count(), 0U);
}
