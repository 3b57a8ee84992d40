#include "SimTest.h"

#include <memory>
#include <string>
#include <vector>

using namespace tivra_sim;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class HubConversation : public testing::Test {
protected:
    void start(HubConfig config = HubConfig::quiet()) {
        hub = std::make_unique<StartedHub>(std::move(config));
        client = std::make_unique<LoggedIn>(*hub);
    }

    std::unique_ptr<StartedHub> hub;
    std::unique_ptr<LoggedIn> client;
};

std::vector<std::string> tokens(const std::vector<std::string>& bodies, int token) {
    std::vector<std::string> values;
    for (const std::string& body : bodies) {
        for (const Pair& pair : splitPairs(body)) {
            if (pair.token == token)
                values.emplace_back(pair.value);
        }
    }
    return values;
}

TEST_F(HubConversation, LoginIsGrantedAndRefusedByNamePasswordAndCount) {
    HubConfig config = HubConfig::quiet();
    config.users = {{"demo", "demo", {922}, 1}};
    StartedHub strict(config);
    RawClient first(strict);
    RawClient second(strict);
    EXPECT_EQ(first.statusOf("5026=1|5022=LoginUser|5028=demo|5029=DEMO"), status::BAD_LOGIN);
    EXPECT_EQ(first.statusOf("5026=1|5022=LoginUser|5028=nobody|5029=demo"), status::BAD_LOGIN);
    EXPECT_EQ(first.statusOf("5022=Echo|5026=2"), status::NOT_LOGGED_IN);
    EXPECT_EQ(first.statusOf("5026=1|5022=LoginUser|5028=demo|5029=demo"), status::SUCCESS);
    EXPECT_EQ(second.statusOf("5026=1|5022=LoginUser|5028=demo|5029=demo"), status::TOO_MANY_LOGINS);
    first.close();
    ASSERT_TRUE(strict.waitForConnections(1));
    EXPECT_EQ(second.statusOf("5026=1|5022=LoginUser|5028=demo|5029=demo"), status::SUCCESS);
}

TEST_F(HubConversation, StartUpRequestsAreAnsweredAsClientsReadThem) {
    start();
    const std::string host = "13001=127.0.0.1|13101=" + std::to_string(hub->port());
    EXPECT_THAT(client->ask("5026=3|5022=SetConflationInterval|2029=1000"), ElementsAre("5026=3|5001=0"));
    EXPECT_THAT(client->ask("5026=5|5022=ListAdministrationInfo"),
                ElementsAre("5026=5|5080=20131007.1|5008=V8.2.1|5001=0"));
    EXPECT_THAT(client->ask("5026=7|5022=GetPort|4=922"), ElementsAre("5026=7|4=922|" + host + "|5001=0"));
    EXPECT_THAT(client->ask("5026=11|5022=GetPort|4=77"), ElementsAre("5026=11|5001=-46"));
    EXPECT_THAT(client->ask("5026=8|5022=ListSplitExchanges"), ElementsAre("5026=8|5001=0"));
    EXPECT_THAT(client->ask("5026=9|5022=ListSystemPermission"),
                ElementsAre("5026=9|3=100|3=101|3=102|3=922|3=4100|5001=0"));
    EXPECT_THAT(client->ask("5026=10|5022=ListUserPermission"),
                ElementsAre("5026=10|3=100|3=101|3=922|3=4100|5001=0"));
    EXPECT_THAT(client->ask("5026=14|5022=Echo"), ElementsAre("5026=14|5001=0"));

    const auto dictionary = client->ask("5026=6|5022=ListInternalTokens");
    ASSERT_EQ(dictionary.size(), hub->config().dictionary.size() + 1);
    EXPECT_EQ(dictionary.front(), "5026=6|5035=3|5010=PERMISSION|5012=INTEGER|5011=20");
    EXPECT_EQ(dictionary.back(), "5026=6|5001=0");
    const auto codes = client->ask("5026=2|5022=ListEnumeration|5035=5001");
    EXPECT_THAT(codes, testing::Contains("5026=2|5035=5001|5034=-5|5033=ERR.AUTH.LOGIN"));
    EXPECT_EQ(codes.back(), "5026=2|5001=0");
    EXPECT_EQ(hub->requestTexts().at(1), "5026=3|5022=SetConflationInterval|2029=1000");
    EXPECT_EQ(hub->requests().at(1).tag, 3);
}

TEST_F(HubConversation, AggregatingHubNamesNoPortForTheSystemSourceOnly) {
    HubConfig config = HubConfig::quiet();
    config.topology = Topology::Aggregating;
    config.advertisedHost = "10.1.2.3";
    start(config);
    EXPECT_THAT(client->ask("5026=7|5022=GetPort|4=922"), ElementsAre("5026=7|4=922|5001=0"));
    EXPECT_THAT(client->ask("5026=40|5022=GetPort|4=100").back(), HasSubstr("13001=10.1.2.3|13101="));
}

TEST_F(HubConversation, ConflationTypesNeedTheHubVersionThatHasThem) {
    const std::vector<std::tuple<std::string, std::string, int>> cases{
        {"V7.3.9", "2035=1", status::UNKNOWN_COMMAND},       {"7.4", "2035=1", status::SUCCESS},
        {"V7.4.0", "2035=3", status::BAD_PARAMETER},         {"V7.5.0", "2035=3|3683=25", status::SUCCESS},
        {"V7.7.0", "2035=4", status::BAD_PARAMETER},         {"V8.0.0", "2035=4|3683=75", status::SUCCESS},
        {"V8.0.0", "2035=3|3683=76", status::BAD_PARAMETER}, {"V8.0.0", "2035=9", status::BAD_PARAMETER}};
    for (const auto& [version, parameters, expected] : cases) {
        HubConfig config = HubConfig::quiet();
        config.hubVersion = version;
        start(config);
        EXPECT_EQ(client->statusOf("5026=4|5022=SetConflationType|" + parameters), expected)
            << version << parameters;
    }
}

TEST_F(HubConversation, RequestsThatCannotBeServedGetTheirStatus) {
    start();
    const std::vector<std::pair<std::string, int>> cases{
        {"5022=QuerySnap|4=100|5=NOSUCH", status::UNKNOWN_SYMBOL},
        {"5022=Subscribe|4=100|5=FULLSUBNOTALLOWEDFROMAPI", status::UNKNOWN_SYMBOL},
        {"5022=QuerySnap|4=102|5=ESZ3", status::NO_PERMISSION},
        {"5022=Subscribe|4=103|5=IBM", status::NOT_CARRIED},
        {"5022=QuerySnap", status::BAD_PARAMETER},
        {"5022=QuerySnap|4=x|5=IBM", status::BAD_PARAMETER},
        {"5022=QuerySnap|4=100|3123=000000000", status::UNKNOWN_SYMBOL},
        {"5022=QueryWildCard|4=100|5=Z*", status::UNKNOWN_SYMBOL},
        {"5022=QueryDepth|4=100|5=NOSUCH", status::UNKNOWN_SYMBOL},
        {"5022=Unsubscribe|4=100|5=IBM", status::UNKNOWN_SUBSCRIPTION},
        {"5022=Unsubscribe|5052=99", status::UNKNOWN_SUBSCRIPTION},
        {"5022=Unsubscribe||5=UNSUBTAGNOTFOUNDWATCHLIST", status::UNKNOWN_SYMBOL},
        {"5022=ListEnumeration|5035=77777", status::UNKNOWN_TOKEN},
        {"5022=ListEnumeration|5010=NO.SUCH.NAME", status::UNKNOWN_TOKEN},
        {"5022=SelectUserFilterTokens|5035=77777", status::UNKNOWN_TOKEN},
        {"5022=AddAlternateIndex|5035=3123", status::BAD_PARAMETER},
        {"5022=SetConflationInterval|2029=x", status::BAD_PARAMETER},
        {"5022=GetXrefPort", status::NO_PORT},
        {"5022=querysnap|4=100|5=IBM", status::UNKNOWN_COMMAND},
        {"5022=", status::UNKNOWN_COMMAND}};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(client->statusOf(text + "|5026=50"), expected) << text;
}

TEST_F(HubConversation, SnapshotsFindSymbolsByNameAlternateIdentifierAndWildcard) {
    start();
    const auto snap = client->ask("5022=QuerySnap|4=100|5=IBM|5026=18");
    ASSERT_EQ(snap.size(), 2U);
    EXPECT_THAT(snap[0], StartsWith("5026=18|3=100|4=100|5=IBM|"));
    EXPECT_THAT(snap[0], HasSubstr("|3123=459200101|3125=US4592001014|"));
    EXPECT_EQ(snap[1], "5026=18|5001=0");
    EXPECT_EQ(client->ask("5022=QuerySnap|3125=US4592001014|5026=18"), snap);
    EXPECT_THAT(tokens(client->ask("5022=QuerySnap|3083=IBM|3130=100|5026=19"), token::SYMBOL),
                ElementsAre("IBM131221C185", "IBM131221P185"));
    EXPECT_THAT(tokens(client->ask("5022=QueryWildCard|4=101|5=*C???|5026=20"), token::SYMBOL),
                ElementsAre("IBM131221C185"));
    EXPECT_THAT(tokens(client->ask("5022=QuerySnap|4=100|5026=21"), token::SYMBOL),
                ElementsAre("AIG", "BAC", "IBM", "SPY"));
    EXPECT_THAT(client->ask("5022=QueryXRef|3123=459200101|5026=22").at(0), HasSubstr("|4=100|5=IBM|"));
    EXPECT_THAT(client->ask("5022=QueryDepth|4=101|5=IBM131221P185|5026=23").at(0),
                HasSubstr("|121=1|101=4.1|102=25|103=4.2|104=31"));
}

TEST_F(HubConversation, UpdatesGoToSubscribersWithoutTagUntilTheyUnsubscribe) {
    start();
    const Record update = Record(100, "IBM").add(token::BID, "185.25");
    EXPECT_EQ(hub->pushRecord(update), 0U);
    EXPECT_THAT(client->ask("5022=QuerySnapAndSubscribe|4=100|5=IBM|5026=30").at(0),
                HasSubstr("|101=185.25|"));
    client->ask("5022=Subscribe|4=100|5=IBM|5026=31");
    EXPECT_EQ(hub->pushRecord(update), 1U) << "one update for two subscriptions of one symbol";
    EXPECT_EQ(client->next(), "3=100|4=100|5=IBM|101=185.25");
    client->ask("5022=Unsubscribe|5052=30|5026=32");
    EXPECT_EQ(hub->pushRecord(update), 1U);
    EXPECT_EQ(client->next(), update.body());
    client->ask("5022=Unsubscribe|4=100|5=IBM|5026=33");
    EXPECT_EQ(hub->pushRecord(update), 0U);
    EXPECT_THAT(client->ask("5022=ListSubscribedSymbols|5026=34"), ElementsAre("5026=34|5001=0"));
}

TEST_F(HubConversation, WildcardSubscriptionsCoverSymbolsThatComeLater) {
    start();
    EXPECT_EQ(client->statusOf("5022=SubscribeWildCard|4=100|5=I*|5026=30"), 0);
    EXPECT_EQ(client->statusOf("5022=Subscribe|4=4100|5026=31"), 0);
    EXPECT_EQ(hub->pushRecord(Record(100, "INTC").add(token::BID, 22)), 1U);
    EXPECT_EQ(hub->pushRecord(Record(100, "MSFT").add(token::BID, 33)), 0U);
    EXPECT_EQ(hub->pushRecord(Record(4100, "FLASH").add(301, "News")), 1U);
    EXPECT_THAT(tokens(client->ask("5022=ListSubscribedSymbols|5026=32"), token::SYMBOL),
                ElementsAre("IBM", "INTC", "FLASH", "HEADLINES"));
    EXPECT_EQ(client->statusOf("5022=UnsubscribeWildCard|4=100|5=I*|5026=33"), 0);
    EXPECT_EQ(hub->pushRecord(Record(100, "INTC").add(token::BID, 23)), 0U);
}

TEST_F(HubConversation, ASymbolIsKeptCurrentByPushesAndDeletions) {
    start();
    hub->pushRecord(Record(101, "IBM131221P185").add(token::BID, "5.5").add(token::ASK, ""));
    const std::string image = client->ask("5022=QuerySnap|4=101|5=IBM131221P185|5026=30").at(0);
    EXPECT_THAT(image, HasSubstr("|101=5.5|102=25|104=31|"));
    client->ask("5022=Subscribe|4=101|5=IBM131221P185|5026=31");
    EXPECT_EQ(hub->pushRefresh(101, "IBM131221P185"), 1U);
    EXPECT_THAT(*client->next(), StartsWith("3=101|4=101|5=IBM131221P185|24=1|"));
}

TEST_F(HubConversation, FilterAndAlternateIndexesShapeUpdates) {
    start();
    client->ask("5022=Subscribe|4=100|5=IBM|5026=30");
    client->ask("5022=AddAlternateIndex|4=100|5035=3123|5026=31");
    hub->pushRecord(Record(100, "IBM").add(token::BID, 1).add(token::ASK, 2));
    EXPECT_EQ(client->next(), "3=100|4=100|5=IBM|101=1|103=2|3123=459200101");
    client->ask("5022=SelectUserFilterTokens|5010=ASK|5026=32");
    hub->pushRecord(Record(100, "IBM").add(token::BID, 1).add(token::ASK, 2));
    EXPECT_EQ(client->next(), "3=100|4=100|5=IBM|103=2|3123=459200101");
}

TEST_F(HubConversation, SystemRecordsComeToThoseWhoSubscribedAndAlertsToAll) {
    HubConfig config = HubConfig::realistic();
    config.heartbeat.interval = std::chrono::milliseconds(5);
    config.hubStatus.enabled = false;
    start(config);
    EXPECT_EQ(hub->pushHubStatus(5, 6), 0U);
    client->ask("5026=12|5022=Subscribe|4=922|5=.UTC.TIME.DATE");
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(*client->next(), StartsWith("3=922|4=922|5=.UTC.TIME.DATE|206="));
    EXPECT_EQ(hub->statistics().subscriptions, 0U) << "the system source counts as no subscription";
    client->ask("5022=Unsubscribe|4=922|5=.UTC.TIME.DATE|5026=40");
    EXPECT_EQ(hub->pushJit(3), 1U);
    EXPECT_EQ(client->next(), "3=922|4=922|5=.JIT|2035=3");
    EXPECT_EQ(hub->withdrawSource(100), 1U);
    EXPECT_EQ(client->next(), "3=922|4=922|5=.USER.ENT.ALERT|4=100|230=1");
    EXPECT_EQ(client->statusOf("5022=QuerySnap|4=100|5=IBM|5026=41"), status::NO_PERMISSION);
    EXPECT_EQ(hub->grantSource(100), 1U);
    EXPECT_EQ(client->next(), "3=922|4=922|5=.USER.ENT.ALERT|4=100");
    EXPECT_EQ(client->statusOf("5022=QuerySnap|4=100|5=IBM|5026=42"), status::SUCCESS);
}

} // namespace
