#include "nats/PendingSends.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace tivra_bus;
using Outcome = SendResult::Outcome;

TEST(PendingSends, EachAnswerOfAServerIsUnderstood) {
    struct Case {
        const char* answer;
        Outcome outcome;
        std::uint64_t position;
    };
    for (const Case& each :
         {Case{R"({"stream":"S","seq":7})", Outcome::Stored, 7},
          Case{R"({"error":{"code":400,"err_code":10071,"description":"wrong last sequence: 3"}})",
               Outcome::Conflict, 0},
          Case{R"({"error":{"code":503,"err_code":10077,"description":"full"}})", Outcome::Failed, 0},
          Case{R"({"error":7})", Outcome::Failed, 0}, Case{R"({"seq":-1})", Outcome::Failed, 0},
          Case{"", Outcome::Failed, 0}, Case{"\xff{", Outcome::Failed, 0}}) {
        PendingSends sends(std::chrono::seconds(60));
        std::vector<SendResult> results;
        const std::uint64_t number = sends.add([&](const SendResult& result) { results.push_back(result); });
        sends.answer(number + 1, each.answer);
        EXPECT_TRUE(results.empty());
        sends.answer(number, each.answer);
        sends.answer(number, each.answer);
        ASSERT_EQ(results.size(), 1U) << each.answer;
        EXPECT_EQ(results[0].outcome, each.outcome) << each.answer;
        EXPECT_EQ(results[0].position, each.position) << each.answer;
    }
}

TEST(PendingSends, WhatIsNeverAnsweredFailsOnce) {
    PendingSends sends(std::chrono::milliseconds(1));
    int failures = 0;
    (void)sends.add([&](const SendResult& result) { failures += result.outcome == Outcome::Failed ? 1 : 0; });
    const auto deadline = PendingSends::Clock::now() + std::chrono::seconds(30);
    while (failures == 0 && PendingSends::Clock::now() < deadline) {
        sends.expire();
        std::this_thread::yield();
    }
    sends.expire();
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(sends.count(), 0U);
}
