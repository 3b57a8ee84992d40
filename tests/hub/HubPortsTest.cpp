// What the answer to the first port look-up says about the group, and split sources.
#include "hub/HubFixture.h"

namespace tivra_internal {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using HubPortsTest = HubFixture;

TEST_F(HubPortsTest, TheAnswerDecidesWhatKindOfHubThisIs) {
    const std::string own = "|13001=127.0.0.1|13101=" + std::to_string(hub.port());
    const struct {
        const char* what;
        std::string body;
        bool isAgg;
        bool isAlone;
        const char* logged;
        std::vector<std::string> created;
    } cases[] = {
        {"no ports", "", true, false, "INFO: This client is connected to a AGG", {}},
        {"its own port alone",
         own,
         false,
         true,
         "INFO: This client is connected to a single-instance HUB",
         {}},
        {"its own port in a longer answer",
         own + "|13001=127.0.0.1",
         false,
         false,
         "INFO: This client is connected to a 1-way HUB",
         {}},
        {"two others",
         own + "|13001=10.0.0.1|13101=7001|13101=7002",
         false,
         false,
         "INFO: This client is connected to a 3-way HUB",
         {"create 10.0.0.1:7001", "create 10.0.0.1:7002"}},
        {"ports that are none",
         own + "|13101=0|13101=65536|13101=-4",
         false,
         false,
         "INFO: This client is connected to a 1-way HUB",
         {}},
        {"a port before any host",
         "|13101=7001" + own,
         false,
         false,
         "INFO: This client is connected to a 1-way HUB",
         {}},
    };
    for (const auto& row : cases) {
        makeClient();
        session.first = client.get();
        session.told.clear();
        Answers answers = loneHub();
        answers["GetPort"] = {"5026=7" + row.body + "|5001=0"};
        LogCapture log;
        loginAndConverse(answers);
        EXPECT_EQ(client->isAgg(), row.isAgg) << row.what;
        EXPECT_EQ(client->isSingleInstanceHUB(), row.isAlone) << row.what;
        EXPECT_THAT(log.lines(), Contains(row.logged)) << row.what;
        std::vector<std::string> created;
        for (const std::string& line : session.told)
            if (line.rfind("create", 0) == 0)
                created.push_back(line);
        EXPECT_EQ(created, row.created) << row.what;
    }
}

TEST_F(HubPortsTest, AHubThatNamesOnlyOthersIsReachedThroughAnUnknownAddress) {
    static const char* const kText =
        "It appears client is using NAT to reach HUB, but did not properly configure NAT pair(s) to API.";
    makeClient();
    Answers answers = loneHub();
    answers["GetPort"] = {"5026=7|13001=10.0.0.1|13101=7001|5001=0"};
    LogCapture log;
    loginAndConverse(answers);
    EXPECT_EQ(client->getSuspendReason(), kText);
    EXPECT_FALSE(client->isAgg());
    EXPECT_THAT(log.lines(),
                testing::AllOf(Contains("WARN: " + std::string(kText)),
                               Contains(testing::AllOf(testing::HasSubstr("dialled " + hub.hostInfo()),
                                                       testing::HasSubstr("10.0.0.1|13101=7001"))),
                               testing::Not(Contains("CRIT: Unable to successfully process AGG check!"))));
}

TEST_F(HubPortsTest, SplitEntriesNameSourcesThenTheSymbolsThatApplyToThem) {
    const struct {
        std::string body;
        std::vector<std::string> told;
    } cases[] = {
        {"|4=1|5=/A/", {"split 1", "split 1 by A"}},
        {"|4=1|4=2|5=/A/|5=/B~C/",
         {"split 1", "split 2", "split 1 by A", "split 2 by A", "split 1 by B|C", "split 2 by B|C"}},
        {"|4=1|5=/A/|5=/B/|4=2|5=/C/",
         {"split 1", "split 1 by A", "split 1 by B", "split 2", "split 1 by C", "split 2 by C"}},
        {"|4=1", {"split 1"}},
        {"|4=1|5=//", {"split 1"}},
        {"|5=/A/", {}},
    };
    for (const auto& row : cases) {
        session.everyHubIsFirst = false;
        session.enumLoaded = true;
        makeClient();
        Answers answers = loneHub();
        answers["ListAdministrationInfo"] = {"5026=5|5008=V8.1.2|5001=0"};
        answers["ListSplitExchanges"] = {"5026=8" + row.body};
        loginAndConverse(answers);
        EXPECT_EQ(session.told, row.told) << row.body;
        session.told.clear();
    }
}

TEST_F(HubPortsTest, ARefusedSplitListLeavesTheClientWaiting) {
    session.everyHubIsFirst = false;
    session.enumLoaded = true;
    makeClient();
    Answers answers = loneHub();
    answers["ListSplitExchanges"] = {"5026=8|5001=-9"};
    LogCapture log;
    const std::vector<std::string> words = wordsOf(loginAndConverse(answers));
    EXPECT_EQ(words.back(), "ListSplitExchanges");
    EXPECT_TRUE(log.has("WARN: ListSplitExchanges failed on " + hub.hostInfo() +
                        " with return code = -9: Unknown code"));
    tp::Clock::advance(6.0);
    EXPECT_TRUE(client->isInitTimedOut(0.0));
}

} // namespace

} // namespace tivra_internal
