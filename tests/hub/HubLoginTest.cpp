// The login request and every answer to it; the two subscriptions of a connection.
#include "hub/HubFixture.h"

namespace tivra_internal {

namespace {

using HubLoginTest = HubFixture;
using testing::HasSubstr;

TEST_F(HubLoginTest, TheRequestNamesTheUserAndTheLogDoesNotHoldThePassword) {
    makeClient();
    connect();
    LogCapture log;
    EXPECT_EQ(client->login(), 1);
    EXPECT_EQ(hub.readRequest(),
              "5026=1|5022=LoginUser|5028=jane|5029=pa55word|13265=0|5053=V1.7.0.1|5129=C++|5128=Linux");
    EXPECT_TRUE(log.has("INFO: HubClient::login - sending login to 127.0.0.1:" + std::to_string(hub.port()) +
                        " for user jane; compression=0; conflationIndicator=false"));
    EXPECT_THAT(log.lines(), testing::Each(testing::Not(HasSubstr("pa55word"))));
}

TEST_F(HubLoginTest, CompressionAndTheConflationIndicatorAreAskedFor) {
    host().set(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, true);
    Options options;
    options.compression = true;
    makeClient(options);
    connectAndLogin();
    EXPECT_EQ(
        hub.readRequest(),
        "5026=1|5022=LoginUser|5028=jane|5029=pa55word|13265=1|5053=V1.7.0.1|5129=C++|5128=Linux|5201=1");
}

TEST_F(HubLoginTest, CredentialsThatFitNoFrameSuspendTheClient) {
    Options options;
    options.password = std::string(8200, 'p');
    makeClient(options);
    connect();
    EXPECT_EQ(client->login(), -1);
    EXPECT_EQ(client->getSuspendReason(), "Login request too long");
    EXPECT_FALSE(hub.hasRequest());
}

TEST_F(HubLoginTest, EveryAnswerButSuccessSuspendsWithItsReason) {
    session.codes[-5] = "ERR.AUTH.LOGIN";
    const struct {
        const char* body;
        const char* reason;
        const char* logged;
        tivra::UserInfo::States state;
    } cases[] = {
        {"5026=1|5001=0", "", "INFO: API Successful Login to Port ", tivra::UserInfo::AUTHENTICATED},
        {"5026=1|5001=-5", "AUTHORIZATION_FAILURE", "CRIT: API Unsuccessful Login to Port ",
         tivra::UserInfo::NOT_AUTHENTICATED},
        {"5026=1|5001=9223372036854775807", "AUTHORIZATION_FAILURE", "CRIT: API Unsuccessful Login to Port ",
         tivra::UserInfo::NOT_AUTHENTICATED},
        {"5026=1", "Login response from HUB is missing ENUM.QUERY.STATUS",
         "CRIT: HubMasterClient::process_login: Message without ENUM.QUERY.STATUS found!",
         tivra::UserInfo::NOT_AUTHENTICATED},
        {"5026=1|5001=", "Login response from HUB is missing ENUM.QUERY.STATUS",
         "CRIT: HubMasterClient::process_login: Message without ENUM.QUERY.STATUS found!",
         tivra::UserInfo::NOT_AUTHENTICATED},
    };
    for (const auto& row : cases) {
        makeClient();
        connectAndLogin();
        hub.readRequest();
        LogCapture log;
        answer(row.body);
        EXPECT_EQ(client->getSuspendReason(), row.reason) << row.body;
        EXPECT_EQ(client->isSuspended(), *row.reason != '\0') << row.body;
        EXPECT_EQ(client->isLoggedIn(), *row.reason == '\0') << row.body;
        EXPECT_EQ(hub.hasRequest(), *row.reason == '\0') << row.body << ": only a success goes on";
        EXPECT_EQ(userHandle->getState(), row.state) << row.body;
        EXPECT_THAT(log.lines(), testing::Contains(testing::StartsWith(row.logged))) << row.body;
    }
}

TEST_F(HubLoginTest, ARefusedLoginNamesTheCodeAndTellsTheUser) {
    session.codes[-5] = "ERR.AUTH.LOGIN";
    makeClient();
    connectAndLogin();
    LogCapture log;
    answer("5026=1|5001=-5");
    EXPECT_TRUE(log.has("CRIT: API Unsuccessful Login to Port " + std::to_string(hub.port()) +
                        " - return code = -5: ERR.AUTH.LOGIN"));
    EXPECT_FALSE(HandleAccess::impl(*userHandle).eventQueueEmpty());
}

TEST_F(HubLoginTest, NothingIsAskedBeforeTheLoginIsAnswered) {
    makeClient();
    connectAndLogin();
    hub.readRequest();
    LogCapture log;
    answer("5026=5|5080=D1|5008=V8.1.2");
    EXPECT_FALSE(hub.hasRequest());
    EXPECT_TRUE(log.has("DBUG: API not logged in"));
}

TEST_F(HubLoginTest, ASubscriptionThatIsRefusedAgainAndAgainClosesTheConnection) {
    for (const char* word : {"Subscribe .UTC.TIME.DATE", "Subscribe .HUB.STATUS"}) {
        for (const char* refusal : {"|5001=-7", ""}) {
            Options options;
            options.retryLimit = 2;
            makeClient(options);
            session.first = client.get();
            Answers answers = loneHub();
            answers[word][0] = (*word == 'S' && std::string(word).back() == 'E' ? "5026=12" : "5026=13") +
                               std::string(refusal);
            const std::vector<std::string> words = wordsOf(loginAndConverse(answers));
            EXPECT_EQ(std::count(words.begin(), words.end(), word), 3) << word << refusal;
            EXPECT_EQ(client->getFd(), -1) << word << refusal;
            EXPECT_FALSE(client->isSuspended()) << word << refusal << ": it is dialled again";
        }
    }
}

} // namespace

} // namespace tivra_internal
