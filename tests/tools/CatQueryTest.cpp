#include "ToolFixture.h"

#include <tivra_sim/HubGroup.h>

using testing::_;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

class CatQuery : public ToolFixture {};

TEST_F(CatQuery, EachCommandPrintsWhatTheHubAnswersAndEnds) {
    const struct {
        const char* arguments;
        const char* request; ///< as the hub got it
        Text output;
    } rows[] = {
        {"snapshot 100:IBM", "QuerySnap",
         ContainsRegex("IBM  source 100\n.*  6  SYMBOL.NAME +International")},
        {"snapshot --cusip 100:459200101 -s 100 -o raw", "QuerySnap",
         ContainsRegex("\\|5=IBM\\|.*\\|3123=459200101\n")},
        {"depth 101:IBM131221C185", "QueryDepth",
         AllOf(HasSubstr("DEPTH.POSITION"), HasSubstr("101  IBM131221C185"))},
        {"wildcard -s 101 'IBM*'", "QueryWildCard",
         AllOf(HasSubstr("IBM131221C185"), HasSubstr("IBM131221P185"))},
        {"xref 100:AIG", "QueryXRef", ContainsRegex("ISIN +US0268747849")},
        {"list tokens --token BID --token 103", "ListAvailableTokens",
         ContainsRegex("  101  BID +FLOAT.*  103  ASK ")},
        {"list enumerations --token 158", "ListEnumeration",
         AllOf(HasSubstr("PRE.OPEN"), HasSubstr("HALTED"))},
        {"list admin", "ListAdministrationInfo", HasSubstr("HUB.VERSION  V8.2.1")},
        {"list sources", "ListExtendedExchangeInfo",
         AllOf(HasSubstr("ENUM.SRC.ID    101\n"), HasSubstr("US.EQUITIES"))},
        {"list subscriptions", "ListSubscribedSymbols", _},
        {"list permissions", "ListUserPermission",
         AllOf(HasSubstr("PERMISSION  100\n"), HasSubstr("PERMISSION  4100\n"))},
        {"list clients", "GetActiveClientsInfo", ContainsRegex("USER.NAME +demo")},
        {"list users", "GetAllUsers", HasSubstr("USER.NAME  demo")},
    };
    for (const auto& row : rows) {
        hub.clearRequests();
        expect({{std::string("tivra-cat $AT ") + row.arguments, 0,
                 AllOf(row.output, Not(HasSubstr("\x1b["))), // no colour away from a terminal
                 HasSubstr("1 requests: 1 answered, 0 refused, 0 open; lost 0")}});
        EXPECT_TRUE(hub.waitForCommand(row.request, std::chrono::milliseconds(0))) << row.arguments;
    }
}

// A machine that is busy with other tests gets some tries; a wait of the program's own shows in each of them.
TEST_F(CatQuery, SnapshotIsThereInLessThanAThirdOfASecond) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + kPatience;
    Clock::duration took{};
    do {
        const Clock::time_point begin = Clock::now();
        ASSERT_EQ(run("tivra-cat $AT snapshot 100:IBM"), 0);
        took = Clock::now() - begin;
    } while (took >= std::chrono::milliseconds(300) && Clock::now() < end);
    EXPECT_LT(took, std::chrono::milliseconds(300));
}

TEST_F(CatQuery, ValuesStandInTheOrderAndTheFormThatWasAskedFor) {
    hub.pushRecord(quote("ONE", "13.25", 700));
    hub.pushRecord(tivra_sim::Record(100, "TWO").add(tivra_sim::token::TRADE_PRICE, "9.5"));
    hub.pushRecord(tivra_sim::Record(100, "EVIL").add(6, "\x1b[2Jgone"));
    expect({{"tivra-cat $AT -o raw --no-summary snapshot 100:ONE", 0,
             "3=100|4=100|5=ONE|5026=18|101=13.25|102=700|202=1381152600.5\n4=100|5=ONE|5026=18|5022="
             "snapshot|5001=0\n",
             ""},
            {"tivra-cat $AT -F size=102,price=BID/TRADE.PRICE,NO.SUCH snapshot -s 100 ONE TWO", 0,
             "source  symbol        size     price  NO.SUCH\n"
             "   100  ONE            700     13.25\n"
             "   100  TWO                      9.5\n",
             HasSubstr("no message had the field NO.SUCH")},
            {"tivra-cat $AT snapshot 100:EVIL", 0, AllOf(HasSubstr("\\x1b[2Jgone"), Not(HasSubstr("\x1b"))),
             _}});
}

TEST_F(CatQuery, JsonHoldsTypedFieldsAndTheAnswer) {
    ASSERT_EQ(run("tivra-cat $AT -o json snapshot 101:IBM131221C185"), 0) << tool->error();
    const std::vector<nlohmann::json> lines = jsonLines(tool->output());
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

TEST_F(CatQuery, WhatAHubRefusesOrLeavesOpenIsReportedWithItsRequest) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    for (tivra_sim::Enumeration& enumeration : config.enumerations) {
        if (enumeration.token == 5001)
            enumeration.values[-12] = "no\x9b\xc3\xa9";
    }
    tivra_sim::Hub odd(config);
    odd.start();
    dial(odd.hostString());
    expect({{"tivra-cat $AT snapshot 100:NOPE", 5, "",
             HasSubstr("100:NOPE: refused: -12 no\\x9b\\xc3\\xa9\n")}});
    dial(hub.hostString());
    expect({{"tivra-cat $AT snapshot -s 100 IBM NOPE", 5, HasSubstr("International Business Machines"),
             HasSubstr("snapshot 100:NOPE: refused: -12 ERR.EXIST.SYMBOL")}});
    hub.ignore("QuerySnap");
    expect({{"tivra-cat $AT --timeout 1 snapshot 100:IBM", 6, "",
             AllOf(HasSubstr("no answer within 1 s"), HasSubstr("snapshot 100:IBM"),
                   HasSubstr(hub.hostString()))}});
}

TEST_F(CatQuery, PortsOfAGroupAreARowPerSourceAndHub) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(2);
    config.splits[300] = {{"^a|^b", 0}, {"^[c-m]", 0}, {"^[n-z]", 1}};
    tivra_sim::HubGroup group(std::move(config));
    group.start();
    dial(group.hostString(0));
    expect(
        {{"tivra-cat $AT list ports", 0,
          AllOf(ContainsRegex("   100  " + group.hostString(0) + " +all\n"),
                ContainsRegex("   201  " + group.hostString(1) + " +all\n"),
                ContainsRegex("   300  " + group.hostString(0) + " +\\{\\^\\[c-m\\]\\}  \\{\\^a~\\^b\\}\n"),
                ContainsRegex("   300  " + group.hostString(1) + " +\\{\\^\\[n-z\\]\\}\n")),
          _}});
}

TEST_F(CatQuery, OptionsAndSymbolsCanComeFromFiles) {
    writeFile("symbols", "# opening\n\n100:IBM\r\n  AIG \n");
    writeFile("config", "host=[\"" + hub.hostString() +
                            "\"]\nuser=demo\nsource=[100]\ncompression=false\n"
                            "symbols-file=\"symbols\"\noutput=raw\nfields=\"ISIN\"\n");
    expect({{"tivra-cat --config config snapshot", 0,
             AllOf(HasSubstr("5=IBM|5026=18|3125=US4592001014\n"),
                   HasSubstr("5=AIG|5026=19|3125=US0268747849\n")),
             _}});
    EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::COMPRESSION), "0");
}

} // namespace
