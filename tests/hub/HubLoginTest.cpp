// The login request and every answer to it; the two subscriptions of a connection.
#include "hub/HandshakeFixture.h"

namespace tivra_internal {
namespace {

using HubLoginTest = HandshakeFixture;
using testing::HasSubstr;

TEST_F(HubLoginTest, TheRequestHoldsWhatTheUserWantsAndTheLogNotThePassword) {
    for (const bool wanted : {false, true}) {
        host().set(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, wanted);
        makeHandshake({.compression = wanted});
        LogCapture log;
        connectAndLogin();
        EXPECT_EQ(readRequest(), std::string("5026=1|5022=LoginUser|5028=jane|5029=pa55word|13265=") +
                                     (wanted ? "1" : "0") + "|5053=V1.7.0.1|5129=C++|5128=Linux" +
                                     (wanted ? "|5201=1" : ""));
        EXPECT_TRUE(log.has("INFO: HubClient::login - sending login to " + hostString() + " for user jane; " +
                            (wanted ? "compression=1; conflationIndicator=true"
                                    : "compression=0; conflationIndicator=false")));
        EXPECT_THAT(log.lines(), testing::Each(testing::Not(HasSubstr("pa55word"))));
    }
}

TEST_F(HubLoginTest, CredentialsThatFitNoFrameSuspendTheClient) {
    userHandle = HandleAccess::makeUserInfo("jane", std::string(8200, 'p'), handler);
    makeHandshake();
    connect();
    EXPECT_EQ(handshake->login(), -1);
    EXPECT_EQ(suspendReason, "Login request too long");
    EXPECT_TRUE(requests.empty());
}

TEST_F(HubLoginTest, EveryAnswerButSuccessSuspendsWithItsReasonAndTellsTheUser) {
    session.codes[-5] = "ERR.AUTH.LOGIN";
    const std::string port = std::to_string(kPort);
    const std::string refused = "CRIT: API Unsuccessful Login to Port " + port + " - return code = ";
    const std::string missing = "Login response from HUB is missing ENUM.QUERY.STATUS";
    const std::string noStatus =
        "CRIT: HubMasterClient::process_login: Message without ENUM.QUERY.STATUS found!";
    const struct {
        const char* status;
        std::string reason;
        std::string logged;
    } cases[] = {
        {"|5001=-5", "AUTHORIZATION_FAILURE", refused + "-5: ERR.AUTH.LOGIN"},
        {"|5001=0", "", "INFO: API Successful Login to Port " + port},
        {"|5001=9223372036854775807", "AUTHORIZATION_FAILURE", refused + "9223372036854775807: Unknown code"},
        {"", missing, noStatus},
        {"|5001=", missing, noStatus},
    };
    for (const auto& row : cases) {
        const bool isGood = row.reason.empty();
        makeHandshake();
        connectAndLogin();
        readRequest();
        LogCapture log;
        answer("5026=1" + std::string(row.status));
        EXPECT_TRUE(log.has(row.logged)) << row.status;
        EXPECT_EQ(suspendReason, row.reason) << row.status;
        EXPECT_EQ(isSuspended(), !isGood) << row.status;
        EXPECT_EQ(handshake->isLoggedIn(), isGood) << row.status;
        EXPECT_EQ(!requests.empty(), isGood) << row.status << ": only a success goes on";
        EXPECT_EQ(userHandle->getState(),
                  isGood ? tivra::UserInfo::AUTHENTICATED : tivra::UserInfo::NOT_AUTHENTICATED);
        EXPECT_FALSE(HandleAccess::impl(*userHandle).eventQueueEmpty());
    }
}

TEST_F(HubLoginTest, NothingIsAskedBeforeTheLoginIsAnswered) {
    makeHandshake();
    connectAndLogin();
    readRequest();
    LogCapture log;
    answer("5026=5|5080=D1|5008=V8.1.2");
    EXPECT_TRUE(requests.empty());
    EXPECT_TRUE(log.has("DBUG: API not logged in"));
}

TEST_F(HubLoginTest, ASubscriptionThatIsRefusedAgainAndAgainClosesTheConnection) {
    for (const char* word : {"Subscribe .UTC.TIME.DATE", "Subscribe .HUB.STATUS"}) {
        for (const char* refusal : {"|5001=-7", ""}) {
            makeHandshake({.retryLimit = 2});
            session.first = client();
            Answers answers = loneHub();
            answers[word][0].replace(7, std::string::npos, refusal);
            const std::vector<std::string> words = wordsOf(loginAndConverse(answers));
            EXPECT_EQ(std::count(words.begin(), words.end(), word), 3) << word << refusal;
            EXPECT_EQ(fd, -1) << word << refusal;
            EXPECT_FALSE(isSuspended()) << word << refusal << ": it is dialled again";
        }
    }
}

} // namespace
} // namespace tivra_internal
