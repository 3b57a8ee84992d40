// Return code texts, dictionary versions and dictionary rows.
#include "hub/HandshakeFixture.h"

namespace tivra_internal {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Not;

class HubDictionaryTest : public HandshakeFixture {
protected:
    /// Converses with a hub of this dictionary version; the rows end the download unless told otherwise.
    void meet(const std::string& version, std::vector<std::string> rows = {}, bool ends = true) {
        Answers answers = loneHub();
        answers["ListAdministrationInfo"] = {"5026=5|5080=" + version + "|5008=V8.1.2|5001=0"};
        if (!rows.empty()) {
            if (ends)
                rows.push_back("5026=6|5001=0");
            answers["ListInternalTokens"] = rows;
        }
        words = wordsOf(loginAndConverse(answers));
    }
    /// A later client, while the first has filled the session's cache.
    void makeLaterClient() {
        makeHandshake();
        meet("D1");
        session.everyHubIsFirst = false;
        makeHandshake();
    }
    /// The name of a token number, empty when the dictionary doesn't know it.
    std::string nameOf(int number) { return dictionary->tokenName(number); }

    std::vector<std::string> words;
    const std::string row30 = "5026=6|5035=30|5010=NEW|5012=INTEGER|5011=7";
};

TEST_F(HubDictionaryTest, RowsAreLoadedAsFarAsTheyGoAndNeverChangeWhatStands) {
    LogCapture log;
    makeHandshake();
    meet("D1",
         {"5026=6|5035=20|5010=PLAIN|5012=INTEGER|5011=7", "5026=6|5035=20|5010=AGAIN|5012=STRING|5011=9",
          "5026=6|5035=5|5010=MY.SYMBOL|5012=INTEGER|5011=1", "5026=6|5035=21|5012=INTEGER|5011=7",
          "5026=6|5035=22|5010=NO.TYPE|5011=7", "5026=6|5035=23|5010=NO.SIZE|5012=FLOAT",
          "5026=6|5035=24|5010=" + std::string(70, 'L') + "|5012=FLOAT|5011=1",
          "5026=6|5035=99999999999|5010=FAR|5012=FLOAT|5011=1", "5026=6|5001=0",
          "5026=6|5035=25|5010=BEHIND.THE.END|5012=FLOAT|5011=1"},
         false);
    ASSERT_TRUE(ready);
    EXPECT_EQ(nameOf(20), "PLAIN");
    EXPECT_EQ(nameOf(5), "SYMBOL.TICKER") << "the bootstrap dictionary stands";
    EXPECT_EQ(nameOf(22), "NO.TYPE");
    EXPECT_EQ(nameOf(23), "NO.SIZE");
    EXPECT_EQ(nameOf(24), "") << "too long a name";
    const std::string start = "WARN: HubMasterClient::process_dic: KVN.TOKEN.";
    EXPECT_THAT(log.lines(), AllOf(Contains("DBUG: HubClient::process_dic: skipping dup for kvnid 20"),
                                   Contains(start + "NAME missing from message; kvnid=21"),
                                   Contains(start + "TYPE missing from message"),
                                   Contains(start + "SIZE missing from message"),
                                   Contains(testing::EndsWith("response with tag [6]; ignored")),
                                   Contains("INFO: DIC download from HUB Successful from " + hostString() +
                                            "; 8 tokens processed")));
}

TEST_F(HubDictionaryTest, AnotherVersionStaysWithItsHubAndIsNotDownloadedAgain) {
    makeLaterClient();
    meet("D2", {row30});
    EXPECT_THAT(words, Contains("ListInternalTokens"));
    EXPECT_EQ(nameOf(30), "NEW");
    EXPECT_EQ(nameOf(10), "");
    EXPECT_EQ(session.getDictionaryCache().find("D2").rows, nullptr);
    closeConnection();
    meet("D2");
    EXPECT_TRUE(ready);
    EXPECT_THAT(words, Not(Contains("ListInternalTokens")));
}

TEST_F(HubDictionaryTest, ADownloadThatAClosingHubCutsShortIsTakenUpAgain) {
    makeLaterClient();
    meet("D2", {row30}, false);
    ASSERT_FALSE(ready);
    closeConnection();
    meet("D2", {row30, "5026=6|5035=31|5010=NEWER|5012=INTEGER|5011=7"});
    EXPECT_TRUE(ready);
    EXPECT_EQ(nameOf(31), "NEWER");
}

TEST_F(HubDictionaryTest, ANewVersionOnAReconnectStartsTheReloadAndNothingElse) {
    for (const bool cm : {false, true}) {
        session.managers.m_isCMconnection = cm;
        makeHandshake();
        session.first = client();
        meet("D1");
        closeConnection();
        session.told.clear();
        meet("D9");
        EXPECT_EQ(words.size(), cm ? 9U : 3U) << "behind a connection manager the change is tolerated";
        EXPECT_EQ(session.told.front() == "reload", !cm);
        EXPECT_EQ(session.told.size() == 1, !cm);
        EXPECT_FALSE(isSuspended());
    }
}

TEST_F(HubDictionaryTest, AdministrationDataMayLackEverything) {
    makeHandshake();
    LogCapture log;
    loginAndConverse("ListAdministrationInfo", {"5026=5|5001=0"});
    EXPECT_TRUE(ready);
    EXPECT_EQ(handshake->hubVersion().major, 0);
    const std::string end = " not present in ListAdministrationInfo response";
    EXPECT_THAT(log.lines(), AllOf(Contains("WARN: DIC.VERSION" + end), Contains("WARN: HUB.VERSION" + end)));
}

TEST_F(HubDictionaryTest, EnumerationRowsWithoutTextAreLeftOut) {
    makeHandshake();
    LogCapture log;
    loginAndConverse("ListEnumeration",
                     {"5026=2|5034=-1|5033=", "5026=2|5034=-2", "5026=2|5034=99999999999|5033=FAR",
                      "5026=2|5034=-3|5033=a\nb", "5026=2", "5026=2|5001=0"});
    EXPECT_TRUE(ready);
    EXPECT_THAT(session.codes, testing::ElementsAre(testing::Pair(-3, "a?b"), testing::Pair(-1, "")));
    const std::string start = "WARN: HubClient::process_enum: ";
    EXPECT_THAT(log.lines(),
                AllOf(Contains(start + "KVN.ENUM.DESC missing from message"),
                      Contains(start + "neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM present in message")));
}

} // namespace
} // namespace tivra_internal
