// How a client finds its hub through a connection manager.
#include <chrono>
#include <cstring>

#include <user/PasswordHandler.h>

#include "hub/HubFixture.h"
#include "hub/LnkApi.h"
#include "hub/LnkApiErrors.h"
#include "support/LnkDouble.h"
#include "support/Ports.h"

namespace tivra_internal {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

struct Answer {
    int status;
    std::string text;
};

std::vector<std::string> g_asked;
std::vector<Answer> g_answers; ///< in turn; the last one stays

int answerInTurn(const char* managerAddr, const char* user, const char* password, char* out, int size) {
    const std::size_t turn = g_asked.size();
    g_asked.push_back(std::string(managerAddr) + ' ' + user + ' ' + password);
    const Answer& given = g_answers[std::min(turn, g_answers.size() - 1)];
    std::strncpy(out, given.text.c_str(), static_cast<std::size_t>(size));
    return given.status;
}

class HubManagerTest : public HubFixture {
protected:
    HubManagerTest() {
        session.managers.m_CMcheckDone = false;
        scriptLibrary(0);
        g_asked.clear();
    }
    static void scriptLibrary(int initStatus) {
        ASSERT_TRUE(LnkApi::instance().load());
        lnkDoubleAnswerBy(answerInTurn, initStatus);
    }
    /// A client of the manager at 127.0.1.1, which hands out hubs of the test's port.
    void makeManaged(std::vector<Answer> answers, long retryLimit = 2) {
        g_answers = std::move(answers);
        makeClient({.address = "127.0.1.1", .retryLimit = retryLimit});
        session.managers.addCandidate({"127.0.1.1", hub.port()});
    }
    /// Of the addresses of managers.
    static std::string lastDigitsOfAsked() {
        std::string last;
        for (const std::string& question : g_asked)
            last += question.substr(0, question.find(':')).back();
        return last;
    }
    std::string portText() const { return std::to_string(hub.port()); }
};

TEST_F(HubManagerTest, TheHubThatTheManagerHandsOutIsDialled) {
    makeManaged({{0, "127.0.0.1"}});
    ASSERT_TRUE(dial(*client));
    hub.accept();
    EXPECT_THAT(g_asked, ElementsAre(HasSubstr("127.0.1.1:" + portText())));
    EXPECT_TRUE(session.managers.m_isCMconnection);
    EXPECT_EQ(session.managers.getRecentCM(), "127.0.1.1");
    EXPECT_EQ(session.managers.hubOfPort(hub.port()), "127.0.0.1");
    EXPECT_EQ(client->getHubAddr(), "127.0.0.1:" + portText());
    EXPECT_THAT(session.told, Contains("no failover"));
    EXPECT_THAT(session.told, Contains("rename 127.0.1.1:" + portText() + " to 127.0.0.1:" + portText()));
    // Whatever has ended it, before it was ready: the next machine may do better.
    for (const bool isRefused : {false, true}) {
        isRefused ? client->suspendClient("refused") : client->closeConnection();
        ASSERT_TRUE(dial(*client));
        EXPECT_EQ(g_asked.size(), isRefused ? 3U : 2U);
    }
}

/// Gives out "word1", "word2" and so on.
struct Vault : tivra::PasswordHandler {
    tivra::Password onPassword(const std::string&) override { return "word" + std::to_string(++count); }
    int count = 0;
};

TEST_F(HubManagerTest, ThePasswordIsAskedForBeforeTheManagerIsAndAgainAtTheLogin) {
    Vault vault;
    userHandle = HandleAccess::makeUserInfo("jane", vault, handler);
    makeManaged({{0, "127.0.0.1"}});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    HubClient::Dial dialled = HubClient::Dial::AwaitsManager;
    while (dialled != HubClient::Dial::Connected && std::chrono::steady_clock::now() < end)
        dialled = client->connectHost(1.0);
    EXPECT_THAT(g_asked, ElementsAre(HasSubstr(" jane word1")));
    hub.accept();
    EXPECT_EQ(client->login(), 1);
    while (!hub.hasRequest() && std::chrono::steady_clock::now() < end)
        client->twentyFiveMsTick(1.0);
    EXPECT_THAT(hub.readRequest(), HasSubstr("|5029=word2|"));
    client.reset();
    userHandle.reset();
}

TEST_F(HubManagerTest, BehindATranslationTheHostTableKnowsAHubByItsOwnAddress) {
    makeManaged({{0, "10.0.0.1"}, {0, "10.0.0.2"}});
    hosts.connections.addNATPair("10.0.0.1", "127.0.0.1");
    hosts.connections.addNATPair("10.0.0.2", "127.0.0.2");
    ASSERT_TRUE(dial(*client));
    EXPECT_EQ(client->getHubAddr(), "10.0.0.1:" + portText() + " (127.0.0.1)");
    client->closeConnection();
    client->setRequestHUBFromCM(true);
    EXPECT_FALSE(dial(*client)) << "no hub is there";
    EXPECT_THAT(session.told, Contains("rename 10.0.0.1:" + portText() + " to 10.0.0.2:" + portText()));
}

TEST_F(HubManagerTest, HubsThatNeverAnswerAreReplacedUntilTheDialsAreUsedUp) {
    const FullPort busy;
    g_answers = {{0, "127.0.0.1"}};
    makeClient({.address = "127.0.1.1", .port = busy.port(), .retryLimit = 2});
    session.managers.addCandidate({"127.0.1.1", busy.port()});
    const auto asksAgainAfterDial = [this] {
        EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
        tp::Clock::advance(5.1);
        return client->connectHost(1.0) == HubClient::Dial::AwaitsManager;
    };
    for (std::size_t dials = 1; dials <= 3; ++dials) {
        EXPECT_FALSE(client->isPastRetryLimit());
        EXPECT_TRUE(asksAgainAfterDial());
        EXPECT_EQ(g_asked.size(), dials);
    }
    EXPECT_TRUE(client->isPastRetryLimit());
    // A cross-reference hub is left out in place of that, while they come up.
    session.started = true;
    client->setQueryXRefHUB(true);
    EXPECT_FALSE(asksAgainAfterDial());
    session.xrefHubsComing = false;
    EXPECT_TRUE(asksAgainAfterDial());
}

TEST_F(HubManagerTest, ALookUpThatFailsEndsTheDialUnderWay) {
    const FullPort busy;
    g_answers = {{LNKAPI_ERROR_WRONG_USERNAMEPASSWORD, ""}};
    makeClient({.address = "127.0.0.1", .port = busy.port()});
    session.managers.addCandidate({"127.0.0.1", busy.port()});
    session.managers.m_CMcheckDone = true;
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::UnderWay);
    session.managers.m_CMcheckDone = false;
    EXPECT_EQ(client->connectHost(1.0), HubClient::Dial::Failed);
    EXPECT_EQ(client->getFd(), -1) << "nobody may log in on half a connection";
    EXPECT_FALSE(client->inProgress());
}

TEST_F(HubManagerTest, AHostThatIsNoManagerIsDialledItself) {
    const std::string tooLong(5000, '1');
    for (const Answer& noManager :
         {Answer{LNKAPI_ERROR_NOT_CM, ""}, Answer{LNKAPI_ERROR_WINSOCK, ""}, Answer{-4711, ""},
          Answer{0, "hub.example"}, Answer{0, "%s%n|5026=1"}, Answer{0, ""}, Answer{0, tooLong}}) {
        SCOPED_TRACE(noManager.status);
        session.managers.m_CMcheckDone = false;
        makeManaged({noManager});
        // The test's hub listens on the loopback address alone.
        EXPECT_FALSE(dial(*client));
        EXPECT_EQ(client->getConnectErrno(), ECONNREFUSED);
        EXPECT_EQ(client->getLnkapiErrno(), 0);
        EXPECT_TRUE(session.managers.m_CMcheckDone);
        EXPECT_FALSE(session.managers.m_isCMconnection);
        EXPECT_EQ(session.managers.m_enableCMRetry.exchange(false), noManager.status == LNKAPI_ERROR_WINSOCK);
    }
}

TEST_F(HubManagerTest, ManagersAreAskedAgainAndTheOneThatAnsweredFirstFromThenOn) {
    const Answer none{LNKAPI_ERROR_SERVER_NOT_AVAILABLE, ""};
    session.managers.addCandidate({"127.0.1.9", hub.port()});
    makeManaged({none, none, none, {0, "127.0.0.1"}});
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(dial(*client));
        client->closeConnection();
        client->setRequestHUBFromCM(true);
    }
    EXPECT_EQ(lastDigitsOfAsked(), "91911");
}

TEST_F(HubManagerTest, AManagersNameIsAskedAtAllItsAddressesAndAtTheOneThatAnsweredFromThenOn) {
    const Answer away{LNKAPI_ERROR_WINSOCK, ""};
    session.managers.setAddresses({{"127.0.1.1", {"127.0.1.1", "127.0.1.5", "127.0.1.7"}}});
    makeManaged({away, away, {0, "127.0.0.1"}});
    session.managers.addCandidate({"127.0.1.1", 1}); // another port of the same
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(dial(*client));
        client->closeConnection();
        client->setRequestHUBFromCM(true);
    }
    EXPECT_EQ(lastDigitsOfAsked(), "1577");
}

TEST_F(HubManagerTest, AManagerThatHasNoHubAtAnotherAddressOfItsNameIsNotDialledAsOne) {
    const Answer away{LNKAPI_ERROR_WINSOCK, ""};
    session.managers.setAddresses({{"127.0.1.1", {"127.0.1.1", "127.0.1.5"}}});
    makeManaged({away, {LNKAPI_ERROR_SERVER_NOT_AVAILABLE, ""}, away});
    session.managers.addCandidate({"127.0.1.9", hub.port()});
    EXPECT_EQ(client->connectHost(0), HubClient::Dial::AwaitsManager);
    EXPECT_EQ(lastDigitsOfAsked(), "159");
}

TEST_F(HubManagerTest, AnEstablishedSessionAsksForEver) {
    makeManaged({{0, "127.0.0.1"}, {LNKAPI_ERROR_SERVER_NOT_AVAILABLE, ""}}, 1);
    ASSERT_TRUE(dial(*client));
    session.started = true;
    client->closeConnection();
    client->setRequestHUBFromCM(true);
    for (int tick = 0; tick < 10; ++tick)
        EXPECT_EQ(client->connectHost(tick), HubClient::Dial::AwaitsManager);
    EXPECT_EQ(g_asked.size(), 11U);
    // A cross-reference hub is given up.
    client->setQueryXRefHUB(true);
    EXPECT_FALSE(dial(*client));
    EXPECT_EQ(client->getLnkapiErrno(), LNKAPI_ERROR_SERVER_NOT_AVAILABLE);
}

TEST_F(HubManagerTest, ALibraryThatDoesNotStartLeavesTheDirectDial) {
    scriptLibrary(-110);
    g_answers = {{0, "127.0.0.1"}};
    makeClient();
    EXPECT_TRUE(dial(*client)) << "no failed connect, which would change sides";
    EXPECT_THAT(g_asked, ElementsAre());
}

TEST_F(HubManagerTest, AManagerWithoutAHubIsNeverDialledAsOne) {
    session.managers.addCandidate({"127.0.0.1", hub.port()}); // where the test's hub would answer a dial
    makeManaged({{LNKAPI_ERROR_SERVER_NOT_AVAILABLE, ""}, {LNKAPI_ERROR_WINSOCK, ""}});
    // The second client is the one that follows a change of sides and back.
    for (int side = 0; side < 2; ++side) {
        g_asked.clear();
        makeClient({.retryLimit = 2});
        EXPECT_FALSE(dial(*client));
        EXPECT_EQ(client->getLnkapiErrno(), LNKAPI_ERROR_SERVER_NOT_AVAILABLE);
        EXPECT_EQ(g_asked.size(), 4U) << "each of two managers, twice";
        session.managers.m_CMcheckDone = true; // as the other side's host leaves it
    }
}

TEST(ManagerLists, AreReducedToOneCandidateForEachManagerAndChecked) {
    const struct {
        const char* name;
        std::vector<HostPair> primary;
        std::vector<HostPair> backup;
        int result;
        std::size_t left;
    } cases[] = {{"one primary", {{"A", 1}}, {}, 0, 1},
                 {"two ports", {{"A", 1}, {"A", 2}}, {}, 0, 1},
                 {"two managers", {{"A", 1}, {"B", 2}}, {}, -1, 2},
                 {"a backup", {{"A", 1}, {"A", 2}}, {{"B", 2}, {"B", 1}}, 0, 2},
                 {"a backup of other ports", {{"A", 1}, {"A", 2}}, {{"B", 1}, {"B", 3}}, -1, 4},
                 {"a backup of fewer ports", {{"A", 1}, {"A", 2}}, {{"B", 1}}, -1, 3},
                 {"two backup managers", {{"A", 1}}, {{"B", 1}, {"C", 1}}, -1, 3}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        ConnectionManagers managers;
        for (const auto* list : {&row.primary, &row.backup})
            for (const HostPair& host : *list)
                managers.addCandidate(host);
        // Those that disagree do so at the next start too.
        for (int start = 0; start < (row.result == 0 ? 1 : 2); ++start)
            EXPECT_EQ(managers.updateCMPortPairLst(row.primary, row.backup), row.result);
        EXPECT_EQ(managers.candidates().size(), row.left);
    }
}

TEST(ManagerRetry, AStartMayAskAgainUpToTheLimit) {
    ConnectionManagers managers;
    std::string reason;
    EXPECT_FALSE(managers.checkCMRetry(2, false, false, reason)) << "the managers could be reached";
    for (const bool expected : {true, false}) {
        managers.m_enableCMRetry = managers.m_CMcheckDone = true;
        EXPECT_EQ(managers.checkCMRetry(2, false, false, reason), expected);
        EXPECT_EQ(managers.m_CMcheckDone, !expected) << "the next connect asks";
    }
    EXPECT_EQ(reason, "Exceed the Retry count for both CM and direct HUB");
    // With a backup one count stands for both sides.
    managers.prepareNextStart();
    managers.m_enableCMRetry = managers.m_CMcheckDone = true;
    EXPECT_TRUE(managers.checkCMRetry(1, true, false, reason));
    EXPECT_TRUE(managers.m_CMcheckDone);
    EXPECT_FALSE(managers.checkCMRetry(1, true, true, reason));
}

} // namespace
} // namespace tivra_internal
