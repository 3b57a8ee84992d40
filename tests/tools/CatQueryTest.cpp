#include "CatFixture.h"

#include <tivra_sim/HubGroup.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class CatQuery : public CatFixture {};

struct QueryCase {
    const char* name;
    std::vector<std::string> arguments;
    std::vector<std::string> expected;
    const char* command; ///< as the hub got it
};

void PrintTo(const QueryCase& parameter, std::ostream* out) {
    *out << parameter.name;
}

class CatQueries : public CatFixture, public testing::WithParamInterface<QueryCase> {};

const QueryCase QUERIES[] = {
    {"Snapshot",
     {"snapshot", "100:IBM"},
     {"IBM  source 100\n", "  6  SYMBOL.NAME              International"},
     "QuerySnap"},
    {"Identifiers",
     {"snapshot", "--cusip", "100:459200101", "-s", "100", "-o", "raw"},
     {"|5=IBM|", "|3123=459200101\n"},
     "QuerySnap"},
    {"Depth", {"depth", "101:IBM131221C185"}, {"DEPTH.POSITION", "101  IBM131221C185"}, "QueryDepth"},
    {"Wildcard", {"wildcard", "-s", "101", "IBM*"}, {"IBM131221C185", "IBM131221P185"}, "QueryWildCard"},
    {"CrossReferences", {"xref", "100:AIG"}, {"ISIN", "US0268747849"}, "QueryXRef"},
    {"Tokens",
     {"list", "tokens", "--token", "BID", "--token", "103"},
     {"  101  BID             FLOAT", "  103  ASK "},
     "ListAvailableTokens"},
    {"Enumerations", {"list", "enumerations", "--token", "158"}, {"PRE.OPEN", "HALTED"}, "ListEnumeration"},
    {"Administration", {"list", "admin"}, {"HUB.VERSION  V8.2.1"}, "ListAdministrationInfo"},
    {"Sources",
     {"list", "sources"},
     {"ENUM.SRC.ID    100\n", "ENUM.SRC.ID    101\n", "US.EQUITIES"},
     "ListExtendedExchangeInfo"},
    {"Subscriptions", {"list", "subscriptions"}, {}, "ListSubscribedSymbols"},
    {"Permissions",
     {"list", "permissions"},
     {"PERMISSION  100\n", "PERMISSION  4100\n"},
     "ListUserPermission"},
    {"Clients", {"list", "clients"}, {"USER.NAME             demo"}, "GetActiveClientsInfo"},
    {"Users", {"list", "users"}, {"USER.NAME  demo"}, "GetAllUsers"},
};

} // namespace

TEST_P(CatQueries, PrintWhatTheHubAnswersAndEnd) {
    ASSERT_EQ(run(GetParam().arguments), 0) << cat->error();
    for (const std::string& text : GetParam().expected)
        EXPECT_THAT(cat->output(), HasSubstr(text));
    EXPECT_THAT(cat->output(), Not(HasSubstr("\x1b["))) << "no colour away from a terminal";
    EXPECT_TRUE(hub.waitForCommand(GetParam().command, std::chrono::milliseconds(0)));
    EXPECT_THAT(cat->error(), HasSubstr("1 requests: 1 answered, 0 refused, 0 open; lost 0"));
}

INSTANTIATE_TEST_SUITE_P(Commands, CatQueries, testing::ValuesIn(QUERIES),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(CatQuery, WhatAHubSaysReachesTheTerminalAsPrintableText) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    for (tivra_sim::Enumeration& enumeration : config.enumerations) {
        if (enumeration.token == 5001)
            enumeration.values[-12] = "no\x9b\xc3\xa9";
    }
    tivra_sim::Hub odd(config);
    odd.start();
    startAt(odd, {"snapshot", "100:NOPE"}).waitForEnd();
    EXPECT_THAT(cat->error(), HasSubstr("100:NOPE: refused: -12 no\\x9b\\xc3\\xa9\n"));
}

TEST_F(CatQuery, PortsOfAGroupAreARowPerSourceAndHub) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(2);
    config.splits[300] = {{"^a|^b", 0}, {"^[c-m]", 0}, {"^[n-z]", 1}};
    tivra_sim::HubGroup group(std::move(config));
    group.start();
    ASSERT_EQ(startAt(group.hub(0), {"list", "ports"}).waitForEnd(), 0) << cat->error();
    for (const std::string& row :
         {"   100  " + group.hostString(0) + " +all\n", "   201  " + group.hostString(1) + " +all\n",
          "   300  " + group.hostString(0) + " +\\{\\^\\[c-m\\]\\}  \\{\\^a~\\^b\\}\n",
          "   300  " + group.hostString(1) + " +\\{\\^\\[n-z\\]\\}\n"})
        EXPECT_THAT(cat->output(), testing::ContainsRegex(row));
}

TEST_F(CatQuery, JsonHoldsTypedFieldsAndTheAnswer) {
    ASSERT_EQ(run({"-o", "json", "snapshot", "101:IBM131221C185"}), 0) << cat->error();
    const std::vector<nlohmann::json> lines = jsonLines(cat->output());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["type"], "image-part");
    EXPECT_EQ(lines[0]["source"], 101);
    EXPECT_EQ(lines[0]["symbol"], "IBM131221C185");
    EXPECT_EQ(lines[0]["fields"]["BID"], 4.1);
    EXPECT_EQ(lines[0]["fields"]["BID.SIZE"], 25);
    EXPECT_EQ(lines[0]["fields"]["PUT.CALL"], "C");
    EXPECT_EQ(lines[0]["fields"]["EXPIRY.DATE"], "2013-12-21T00:00:00.000Z");
    EXPECT_EQ(lines[1]["type"], "image-complete");
    EXPECT_EQ(lines[1]["status"], 0);
    EXPECT_EQ(lines[1]["tag"], lines[0]["tag"]);
}

TEST_F(CatQuery, RawPairsAreThoseOfTheWire) {
    hub.pushRecord(quote("RAW", "13.25", 700));
    ASSERT_EQ(run({"-o", "raw", "--no-summary", "snapshot", "100:RAW"}), 0);
    EXPECT_EQ(cat->output(),
              "3=100|4=100|5=RAW|5026=18|101=13.25|102=700|202=1381152600.5\n5026=18|5001=0\n");
    EXPECT_EQ(cat->error(), "");
}

TEST_F(CatQuery, SelectedFieldsStandInTheOrderAsked) {
    hub.pushRecord(quote("ONE", "13.25", 700));
    hub.pushRecord(tivra_sim::Record(100, "TWO").add(tivra_sim::token::TRADE_PRICE, "9.5"));
    ASSERT_EQ(run({"-F", "size=102,price=BID/TRADE.PRICE,NO.SUCH", "snapshot", "-s", "100", "ONE", "TWO"}),
              0);
    EXPECT_EQ(cat->output(), "source  symbol        size     price  NO.SUCH\n"
                             "   100  ONE            700     13.25\n"
                             "   100  TWO                      9.5\n");
    EXPECT_THAT(cat->error(), HasSubstr("no message had the field NO.SUCH"));
}

TEST_F(CatQuery, ControlBytesOfTheFeedDoNotReachTheTerminal) {
    hub.pushRecord(tivra_sim::Record(100, "EVIL").add(6, "\x1b[2Jgone"));
    ASSERT_EQ(run({"snapshot", "100:EVIL"}), 0);
    EXPECT_THAT(cat->output(), HasSubstr("\\x1b[2Jgone"));
    EXPECT_THAT(cat->output(), Not(HasSubstr("\x1b")));
}

TEST_F(CatQuery, RefusedRequestTellsCodeAndNameAndTheOthersArePrinted) {
    EXPECT_EQ(run({"snapshot", "-s", "100", "IBM", "NOPE"}), 5);
    EXPECT_THAT(cat->error(), HasSubstr("snapshot 100:NOPE: refused: -12 ERR.EXIST.SYMBOL"));
    EXPECT_THAT(cat->output(), HasSubstr("International Business Machines"));
}

TEST_F(CatQuery, MissingAnswerEndsAtTheTimeoutAndNamesTheRequest) {
    hub.ignore("QuerySnap");
    EXPECT_EQ(run({"--timeout", "1", "snapshot", "100:IBM"}), 6);
    EXPECT_THAT(cat->error(), AllOf(HasSubstr("no answer within 1 s"), HasSubstr("snapshot 100:IBM"),
                                    HasSubstr(hub.hostString())));
}

TEST_F(CatQuery, OptionsAndSymbolsCanComeFromFiles) {
    const std::string symbols = writeFile("symbols", "# opening\n\n100:IBM\r\n  AIG \n");
    const std::string config = writeFile("config", "host=[\"" + hub.hostString() +
                                                       "\"]\nuser=demo\nsource=[100]\ncompression=false\n"
                                                       "symbols-file=\"" +
                                                       symbols + "\"\noutput=raw\nfields=\"ISIN\"\n");
    startBare({"--config", config, "snapshot"});
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::COMPRESSION), "0");
    EXPECT_THAT(cat->output(), AllOf(HasSubstr("5=IBM|5026=18|3125=US4592001014\n"),
                                     HasSubstr("5=AIG|5026=19|3125=US0268747849\n")));
}
