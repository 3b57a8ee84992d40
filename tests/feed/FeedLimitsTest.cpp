// The bounds of what a feed keeps for its hubs, which no hub of a test can fill in reasonable time.
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "feed/AnswerState.h"
#include "feed/FeedRegistry.h"
#include "feed/FeedSender.h"
#include "feed/FieldTable.h"
#include "support/LogCapture.h"

using testing::HasSubstr;
using namespace tivra_internal;

namespace {

TEST(FieldTable, GivesHubsSoManyNamesAndApplicationsTheirOwnBeyond) {
    FieldTable table;
    LogCapture log;
    const auto nameOf = [](std::size_t i) { return "HOSTILE." + std::to_string(i); };
    for (std::size_t i = 0; i < FieldTable::kMostNames; ++i)
        static_cast<void>(table.internOfHub(nameOf(i)));
    EXPECT_EQ(log.lines().size(), 0U);
    const std::string last = nameOf(FieldTable::kMostNames - 1);
    const std::string next = nameOf(FieldTable::kMostNames);
    EXPECT_EQ(table.internOfHub(last).name, last) << "a name that is known";
    EXPECT_EQ(table.internOfHub(next).name, "");
    EXPECT_EQ(table.find(next), nullptr);
    EXPECT_TRUE(
        log.has("WARN: Hubs have named more than 1000000 fields; " + next + " goes without its name"));
    EXPECT_EQ(table.intern(next).name, next);
    EXPECT_EQ(table.internOfHub(next).name, next) << "the application knows it";
}

class NoSender : public FeedSender {
public:
    int64_t nextTag() override { return 1; }
    bool send(tivra::Commands, const tivra::Instrument&, int64_t, int64_t) override { return true; }
};

TEST(AnswerState, EndsWithAnErrorOnceItHoldsMoreThanAnyMay) {
    constexpr std::size_t kRecords = 10;
    NoSender sender;
    const auto registry = std::make_shared<FeedRegistry>(sender, nullptr);
    for (const std::size_t records : {kRecords, kRecords + 1}) {
        LogCapture log;
        const auto answer = std::make_shared<AnswerState>(registry, 1, "list of everything",
                                                          kRecords * sizeof(tivra::Record));
        for (std::size_t i = 0; i < records; ++i)
            answer->addRecord(tivra::Record());
        EXPECT_EQ(answer->isReady(), records > kRecords);
        answer->complete();
        const AnswerState::Result result = answer->wait(nullptr);
        ASSERT_EQ(static_cast<bool>(result), records == kRecords);
        if (result) {
            EXPECT_EQ(result->records().size(), kRecords);
            continue;
        }
        EXPECT_THAT(result.error().what(), HasSubstr("the answer to the list of everything takes more than"));
        EXPECT_EQ(log.linesAboveDebug().size(), 1U);
    }
}

} // namespace
