// Return code texts, dictionary versions and dictionary rows.
#include "hub/HubFixture.h"
#include "kvnparse/Token.h"

namespace tivra_internal {

namespace {

using testing::Contains;
using testing::HasSubstr;

class HubDictionaryTest : public HubFixture {
protected:
    void comeUp(const std::string& version, std::vector<std::string> rows = {}) {
        Answers answers = loneHub();
        answers["ListAdministrationInfo"] = {"5026=5|5080=" + version + "|5008=V8.1.2|5001=0"};
        if (!rows.empty()) {
            rows.push_back("5026=6|5001=0");
            answers["ListInternalTokens"] = rows;
        }
        words = wordsOf(loginAndConverse(answers));
    }
    /// The name of a token number, empty when the dictionary doesn't know it.
    std::string nameOf(int number) {
        const KVNAPI::Token* token = client->getDicMetaMap().lookupTokenViaNum(number);
        return token != nullptr ? token->name : "";
    }

    std::vector<std::string> words;
};

TEST_F(HubDictionaryTest, RowsAreLoadedAsFarAsTheyGoAndNeverChangeWhatStands) {
    LogCapture log;
    makeClient();
    comeUp("D1",
           {"5026=6|5035=20|5010=PLAIN|5012=INTEGER|5011=7", "5026=6|5035=20|5010=AGAIN|5012=STRING|5011=9",
            "5026=6|5035=5|5010=MY.SYMBOL|5012=INTEGER|5011=1", "5026=6|5035=21|5012=INTEGER|5011=7",
            "5026=6|5035=22|5010=NO.TYPE|5011=7", "5026=6|5035=23|5010=NO.SIZE|5012=FLOAT",
            "5026=6|5035=24|5010=" + std::string(70, 'L') + "|5012=FLOAT|5011=1",
            "5026=6|5035=25|5010=ODD|5012=BLOB|5011=-4",
            "5026=6|5035=99999999999|5010=FAR|5012=FLOAT|5011=1"});
    ASSERT_TRUE(client->isReady());
    EXPECT_EQ(nameOf(20), "PLAIN");
    EXPECT_EQ(nameOf(5), "SYMBOL.TICKER") << "the bootstrap dictionary stands";
    EXPECT_EQ(nameOf(22), "NO.TYPE");
    EXPECT_EQ(nameOf(23), "NO.SIZE");
    EXPECT_EQ(nameOf(24), "") << "too long a name";
    const KVNAPI::Token* odd = client->getDicMetaMap().lookupTokenViaNum(25);
    ASSERT_NE(odd, nullptr);
    EXPECT_EQ(odd->storage, KVNAPI::Token::TY_INT);
    EXPECT_THAT(
        log.lines(),
        testing::AllOf(
            Contains("DBUG: HubClient::process_dic: skipping dup for kvnid 20"),
            Contains("WARN: HubMasterClient::process_dic: KVN.TOKEN.NAME missing from message; kvnid=21"),
            Contains("WARN: HubMasterClient::process_dic: KVN.TOKEN.TYPE missing from message"),
            Contains("WARN: HubMasterClient::process_dic: KVN.TOKEN.SIZE missing from message"),
            Contains("INFO: DIC download from HUB Successful from " + hub.hostInfo() +
                     "; 9 tokens processed")));
    EXPECT_THAT(session.told, Contains("event 3 D1"));
}

TEST_F(HubDictionaryTest, AnotherVersionStaysWithItsHubAndIsNotDownloadedAgain) {
    makeClient();
    comeUp("D1");
    const std::unique_ptr<HubClient> firstClient = std::move(client);
    session.everyHubIsFirst = false;

    makeClient();
    comeUp("D2", {"5026=6|5035=30|5010=NEW|5012=INTEGER|5011=7"});
    EXPECT_THAT(words, Contains("ListInternalTokens"));
    EXPECT_EQ(nameOf(30), "NEW");
    EXPECT_EQ(nameOf(10), "");
    EXPECT_EQ(session.getDictionaryCache().find("D2").rows, nullptr);
    client->closeConnection();
    comeUp("D2");
    EXPECT_TRUE(client->isReady());
    EXPECT_THAT(words, testing::Not(Contains("ListInternalTokens")));
}

TEST_F(HubDictionaryTest, ADownloadThatAClosingHubCutsShortIsTakenUpAgain) {
    makeClient();
    comeUp("D1");
    const std::unique_ptr<HubClient> firstClient = std::move(client);
    session.everyHubIsFirst = false;
    makeClient();
    Answers answers = loneHub();
    answers["ListAdministrationInfo"] = {"5026=5|5080=D2|5008=V8.1.2|5001=0"};
    answers["ListInternalTokens"] = {"5026=6|5035=30|5010=NEW|5012=INTEGER|5011=7"};
    loginAndConverse(answers);
    ASSERT_FALSE(client->isReady());
    client->closeConnection();
    comeUp("D2",
           {"5026=6|5035=30|5010=NEW|5012=INTEGER|5011=7", "5026=6|5035=31|5010=NEWER|5012=INTEGER|5011=7"});
    EXPECT_TRUE(client->isReady());
    EXPECT_EQ(nameOf(31), "NEWER");
}

TEST_F(HubDictionaryTest, ANewVersionOnAReconnectStartsTheReloadAndNothingElse) {
    for (const bool cm : {false, true}) {
        session.cmConnection = cm;
        makeClient();
        session.first = client.get();
        comeUp("D1");
        client->closeConnection();
        session.told.clear();
        comeUp("D9");
        EXPECT_EQ(words.size(), cm ? 9U : 3U);
        if (cm)
            EXPECT_THAT(session.told, testing::Not(Contains("reload"))) << "tolerated";
        else
            EXPECT_THAT(session.told, testing::ElementsAre("reload"));
        EXPECT_FALSE(client->isSuspended());
    }
}

TEST_F(HubDictionaryTest, AdministrationDataMayLackEverything) {
    Answers answers = loneHub();
    answers["ListAdministrationInfo"] = {"5026=5|5001=0"};
    makeClient();
    LogCapture log;
    loginAndConverse(answers);
    EXPECT_TRUE(client->isReady());
    EXPECT_EQ(client->getHubMajorVersion(), 0);
    EXPECT_THAT(log.lines(),
                testing::AllOf(Contains("WARN: DIC.VERSION not present in ListAdministrationInfo response"),
                               Contains("WARN: HUB.VERSION not present in ListAdministrationInfo response")));
}

TEST_F(HubDictionaryTest, EnumerationRowsWithoutTextAreLeftOut) {
    Answers answers = loneHub();
    answers["ListEnumeration"] = {
        "5026=2|5034=-1|5033=",     "5026=2|5034=-2", "5026=2|5034=99999999999|5033=FAR",
        "5026=2|5034=-3|5033=a\nb", "5026=2",         "5026=2|5001=0"};
    makeClient();
    LogCapture log;
    loginAndConverse(answers);
    EXPECT_TRUE(client->isReady());
    EXPECT_THAT(session.codes, testing::ElementsAre(testing::Pair(-3, "a?b"), testing::Pair(-1, "")));
    EXPECT_THAT(
        log.lines(),
        testing::AllOf(Contains("WARN: HubClient::process_enum: KVN.ENUM.DESC missing from message"),
                       Contains("WARN: HubClient::process_enum: neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM "
                                "present in message")));
}

} // namespace

} // namespace tivra_internal
