// The handshake as the hub sees it, and what it takes and keeps.
#include <cstring>

#include "hub/HandshakeFixture.h"

namespace tivra_internal {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using HandshakeTest = HandshakeFixture;

TEST_F(HandshakeTest, ALoneHubIsAskedInThisOrderWithTheseTexts) {
    makeHandshake();
    EXPECT_THAT(loginAndConverse(loneHub()),
                ElementsAre(HasSubstr("5026=1|5022=LoginUser|"), "5026=2|5022=ListEnumeration|5035=5001",
                            "5026=3|5022=SetConflationInterval|2029=1000",
                            "5026=5|5022=ListAdministrationInfo", "5026=4|5022=SetConflationType|2035=1",
                            "5026=6|5022=ListInternalTokens", "5026=7|5022=GetPort|4=922",
                            "5026=9|5022=ListSystemPermission", "5026=10|5022=ListUserPermission",
                            "5026=12|5022=Subscribe|4=922|5=.UTC.TIME.DATE",
                            "5026=13|5022=Subscribe|4=922|5=.HUB.STATUS"));
    EXPECT_TRUE(ready);
    EXPECT_TRUE(handshake->hubKind() == HubKind::SingleInstance);
    EXPECT_EQ(handshake->hubVersion().major, 8);
    EXPECT_EQ(handshake->hubVersion().minor, 1);
    EXPECT_THAT(session.told,
                ElementsAre("event 3 D1", "box 922", "box 558", "user 922 here", "user 558 here"));
    EXPECT_EQ(session.codes[-5], "ERR.AUTH.LOGIN");
}

TEST_F(HandshakeTest, TheFirstOfAGroupWaitsForItsSiblingsAndThenLooksForSources) {
    session.knownHosts = {"10.0.0.7:9000"};
    Answers answers = loneHub();
    answers["5026=7|5022=GetPort|4=922"] = {"5026=7" + ownPort() + "|13001=10.0.0.7|13101=9000|5001=0"};
    answers["ListSplitExchanges"] = {"5026=8|4=1|4=2|5=/A~B/", "5026=8|5001=0"};
    answers["ListUserPermission"] = {"5026=10|3=922|3=1|3=2|3=3|3=4|3=4100|5001=0"};
    answers["5026=11|5022=GetPort|4=1"] = {"5026=11|13001=10.0.0.7|13101=9000|5001=0"};
    answers["5026=11|5022=GetPort|4=2"] = {"5026=11" + ownPort() + "|5001=0"};
    answers["5026=11|5022=GetPort|4=3"] = {"5026=11|5001=-46"};
    answers["5026=11|5022=GetPort|4=4"] = {"5026=11|5001=-9"};
    answers["5026=11|5022=GetPort|4=4100"] = {"5026=11|13001=10.9.9.9|13101=1|5001=0"};
    makeHandshake();
    EXPECT_EQ(wordsOf(loginAndConverse(answers)).back(), "ListSystemPermission");
    EXPECT_TRUE(handshake->waitsForSiblings());
    EXPECT_FALSE(ready);

    LogCapture log;
    const double began = handshake->beginTime();
    tp::Clock::advance(6.0);
    handshake->siblingsAreReady();
    handshake->tick();
    EXPECT_FALSE(handshake->waitsForSiblings());
    EXPECT_EQ(handshake->beginTime(), began + 6.0) << "the wait was not the hub's";
    EXPECT_EQ(progressTime, tp::Clock::monotonic());
    EXPECT_THAT(converse(answers), ElementsAre("5026=10|5022=ListUserPermission", "5026=11|5022=GetPort|4=1",
                                               "5026=11|5022=GetPort|4=2", "5026=11|5022=GetPort|4=3",
                                               "5026=11|5022=GetPort|4=4", "5026=11|5022=GetPort|4=4100",
                                               "5026=12|5022=Subscribe|4=922|5=.UTC.TIME.DATE",
                                               "5026=13|5022=Subscribe|4=922|5=.HUB.STATUS"));
    EXPECT_TRUE(ready);
    EXPECT_THAT(session.told, ElementsAre("event 3 D1", "create 10.0.0.7:9000", "split 1", "split 2",
                                          "split 1 by A|B", "split 2 by A|B", "box 922", "box 558",
                                          "user 922", "user 1", "user 2", "user 3", "user 4", "user 4100",
                                          "assign 1 to 10.0.0.7:9000", "assign 2", "assign 3", "assign 4"));
    EXPECT_THAT(log.linesAboveDebug(),
                AllOf(Contains("WARN: HubClient::process_port: rc=-9 (Unknown code) from GetPort for src=4"),
                      Contains("WARN: HubClient::process_port: hostConfig(10.9.9.9:1) not found!"),
                      Not(Contains(HasSubstr("src=3")))));
}

TEST_F(HandshakeTest, AGroupWhoseSourcesAllHaveHubsGetsAnEchoToGoOn) {
    session.established = true; // so that nothing waits for the sibling
    makeHandshake();
    const std::vector<std::string> words =
        wordsOf(loginAndConverse("GetPort", {"5026=7" + ownPort() + "|13001=1.2.3.4|13101=5|5001=0"}));
    EXPECT_THAT(
        std::vector<std::string>(words.end() - 4, words.end()),
        ElementsAre("ListUserPermission", "Echo", "Subscribe .UTC.TIME.DATE", "Subscribe .HUB.STATUS"));
    EXPECT_TRUE(ready);
}

TEST_F(HandshakeTest, AReconnectSkipsWhatIsKnownAndALaterClientWhatIsShared) {
    makeHandshake();
    loginAndConverse(loneHub());
    ASSERT_TRUE(ready);
    closeConnection();
    EXPECT_THAT(wordsOf(loginAndConverse(loneHub())),
                ElementsAre("LoginUser", "SetConflationInterval", "ListAdministrationInfo",
                            "SetConflationType", "ListSystemPermission", "ListUserPermission",
                            "Subscribe .UTC.TIME.DATE", "Subscribe .HUB.STATUS"));
    EXPECT_TRUE(ready);

    session.everyHubIsFirst = false;
    makeHandshake({.readTimeout = 0});
    EXPECT_THAT(wordsOf(loginAndConverse(loneHub())),
                ElementsAre("LoginUser", "SetConflationInterval", "ListAdministrationInfo",
                            "SetConflationType", "ListSplitExchanges", "ListSystemPermission",
                            "Subscribe .HUB.STATUS"))
        << "nor a heartbeat without a read timeout";
    EXPECT_TRUE(ready);
    EXPECT_NE(dictionary->lookupTokenViaNum(11), nullptr) << "loaded without a download";
}

TEST_F(HandshakeTest, AStepThatFailsSuspendsWithItsReason) {
    const std::string agg = "Unable to successfully process AGG check!";
    const std::string box = "Unable to successfully process box entitlements!";
    const std::string user = "Unable to successfully process entitlements!";
    const struct {
        const char* word;
        const char* body;
        std::string reason;
    } cases[] = {
        {"ListEnumeration", "5026=2|5001=-9", "API failed to download enum"},
        {"ListInternalTokens", "5026=6|5001=-9", "API failed to download DIC"},
        {"GetPort", "5026=7|5001=-9", agg},
        {"GetPort", "5026=7|13001=127.0.0.1|13101=1", agg},
        {"ListSystemPermission", "5026=9|3=558|5001=0", box},
        {"ListSystemPermission", "5026=9|5001=0", box},
        {"ListSystemPermission", "5026=9|3=922", box},
        {"ListUserPermission", "5026=10|3=558|5001=0", user},
        {"ListUserPermission", "5026=10|3=922", user},
    };
    for (const auto& row : cases) {
        session.enumLoaded = false;
        session.getDictionaryCache().reset();
        makeHandshake();
        session.first = client();
        EXPECT_EQ(wordsOf(loginAndConverse(row.word, {row.body})).back(), row.word) << row.body;
        EXPECT_EQ(suspendReason, row.reason) << row.body;
        EXPECT_EQ(fd, -1) << row.body;
    }
}

TEST_F(HandshakeTest, PermissionsDecideNotTheirStatus) {
    Answers answers = loneHub();
    answers["ListSystemPermission"] = {"5026=9|3=922|3=558|5001=-3|3=777"};
    answers["ListUserPermission"] = {"5026=10|3=558|3=922|5001=-3"};
    makeHandshake();
    loginAndConverse(answers);
    EXPECT_TRUE(ready);
    EXPECT_THAT(session.told, Not(Contains("box 777"))) << "what follows the status is no permission";
}

TEST_F(HandshakeTest, AnUnknownTagIsLoggedAndStillDrivesTheChain) {
    makeHandshake();
    connectAndLogin();
    readRequest();
    session.enumLoaded = true;
    answer("5026=1|5001=0");
    readRequest();
    LogCapture log;
    for (const char* tag : {"14", "16", "99", "-1", "99999999999999"}) {
        answer("5026=" + std::string(tag) + "|5001=0");
        EXPECT_EQ(readRequest(), "5026=3|5022=SetConflationInterval|2029=1000") << tag;
    }
    EXPECT_THAT(log.linesAboveDebug(),
                ElementsAre("WARN: Unknown Message - Tag [16]", "WARN: Unknown Message - Tag [99]",
                            "WARN: Unknown Message - Tag [-1]", "WARN: Unknown Message - Tag [2147483647]"));
}

TEST_F(HandshakeTest, AnAnswerThatComesTwiceOrUnderAnotherTagHoldsNothingUp) {
    for (const auto& [word, answer] : loneHub()) {
        Answers answers = loneHub();
        answers[word].push_back(answer.back());
        answers["ListSystemPermission"].insert(answers["ListSystemPermission"].begin(), "5026=77|5001=0");
        makeHandshake();
        session.first = client();
        loginAndConverse(answers);
        EXPECT_TRUE(ready && !isSuspended()) << word;
    }
}

TEST_F(HandshakeTest, UntaggedDataIsNormalForTheSystemSourceOnly) {
    makeHandshake();
    connectAndLogin();
    const std::string text = ": HubClient::process_message: QUERY.TAG not present!; fd=";
    for (const char* body : {"4=922|5=.HUB.STATUS|13266=5", "4=922|5=QERR|13266=5", "4=922|13266=5",
                             "4=922|5=.HUB.STATUSES|13266=5", "4=1|5=QERROR|13266=5", "5=QERROR|13266=5"}) {
        const bool isNormal = std::string(body).rfind("4=922|", 0) == 0 && !std::strstr(body, "STATUSES");
        LogCapture log;
        answer(body);
        EXPECT_THAT(log.lines(), Contains(AllOf(testing::StartsWith((isNormal ? "DBUG" : "WARN") + text),
                                                HasSubstr(body))));
    }
}

TEST_F(HandshakeTest, ListsThatNobodyAskedForFillNoTable) {
    makeHandshake();
    connectAndLogin();
    answer("5026=1|5001=0");
    for (const char* body :
         {"5026=9|3=922|3=4|5001=0", "5026=10|3=922|3=4|5001=0", "5026=6|5035=77|5010=X|5012=INTEGER|5011=4",
          "5026=6|5001=0", "5026=11|13001=1.2.3.4|13101=5|5001=0"})
        answer(body);
    EXPECT_THAT(session.told, testing::IsEmpty());
    EXPECT_FALSE(session.getDictionaryCache().hasInitialDIC());
    EXPECT_FALSE(isSuspended());
}

TEST_F(HandshakeTest, ConflationTextsCarryTheHostsSettings) {
    host().set(tivra::HostConfig::CONFLATION_INTERVAL_LONG, 500L);
    host().set(tivra::HostConfig::CONFLATION_TYPE_LONG, 3L);
    host().set(tivra::HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG, 80L);
    makeHandshake();
    LogCapture log;
    Answers answers = loneHubBut("SetConflationType", {"5026=4|5001=-9"});
    answers["SetConflationInterval"] = {"5026=3|5001=-9"};
    EXPECT_THAT(loginAndConverse(answers), AllOf(Contains("5026=3|5022=SetConflationInterval|2029=500"),
                                                 Contains("5026=4|5022=SetConflationType|2035=3|3683=75")));
    EXPECT_TRUE(ready) << "a refused conflation ends nothing";
    EXPECT_EQ(jitThreshold, 75);
    EXPECT_THAT(log.lines(),
                Contains(HasSubstr("rc=-9 (Unknown code) from SetConflationType for 127.0.0.1:")));
}

} // namespace
} // namespace tivra_internal
