// tivra-wire with the dictionary of a hub.
#include "ToolFixture.h"

#include <algorithm>
#include <map>

using namespace tivra_sim;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class WireHub : public ToolFixture {
protected:
    /// The map that tivra-wire makes with these options.
    std::string mapWith(const std::string& options) {
        EXPECT_EQ(run("tivra-wire " + options + " map"), 0) << tool->error();
        return tool->output();
    }
};

TEST_F(WireHub, WritesEveryTokenOfTheHubAsAMapFileThatLoadsToTheSame) {
    const std::map<std::string, std::string> storages{
        {"STRING", "string"}, {"BOOL", "int"},    {"DATETIME", "double"}, {"FLOAT", "double"},
        {"INTEGER", "int"},   {"DATE", "double"}, {"YEAR", "double"},     {"MONTHYEAR", "double"}};
    std::map<int, std::string> expected;
    for (const DictionaryRow& row : HubConfig::realistic().dictionary)
        expected[row.number] = "cmd=AddToken|name=" + row.name + "|token=" + std::to_string(row.number) +
                               "|storage=" + storages.at(row.type) + "\n";
    ASSERT_GT(expected.size(), 200U);
    const std::string text = mapWith("--hub $HUB -u demo");
    EXPECT_EQ(tool->error(), "");
    for (const auto& [number, line] : expected)
        EXPECT_THAT(text, HasSubstr(line));
    // A short name of a file may name a token of the hub, and the map that is written keeps it.
    const std::string name = "cmd=AddShortName|name=BID|shortname=b\n";
    writeFile("names", name);
    writeFile("frame", encodeFrame("5=IBM|101=1.5"));
    expect({{"tivra-wire --hub $HUB -u demo -m names convert --blanks frame", 0, "SYMBOL.TICKER=IBM b=1.5\n",
             ""},
            {"tivra-wire --hub $HUB -u demo --no-compression map -o map", 0, "", ""}});
    std::string named = text;
    const std::string& bid = expected.at(token::BID);
    named.insert(named.find(bid) + bid.size(), name);
    EXPECT_EQ(mapWith("-m map -m names"), named);
}

TEST_F(WireHub, LeavesOutWhatNoMapFileCanHoldAndKnowsWhatEveryHubHas) {
    HubConfig config = HubConfig::realistic();
    const std::size_t before = config.dictionary.size();
    config.dictionary.push_back({70001, "LINE\nBREAK", "STRING", 10});
    config.dictionary.push_back({70002, std::string(65, 'N'), "STRING", 10});
    config.dictionary.push_back({70003, "BID", "STRING", 10});     // a name that is taken
    config.dictionary.push_back({5004, "ANOTHER", "STRING", 10});  // a number that is taken
    config.dictionary.push_back({70004, "STRANGE", "MATRIX", 10}); // stays an integer, as in the library
    config.dictionary.push_back({70005, "A=B", "FLOAT", 8});
    config.dictionary.erase(std::remove_if(config.dictionary.begin(), config.dictionary.end(),
                                           [](const DictionaryRow& row) {
                                               return row.name == "UNKNOWNTOKEN" || row.name == "TOKEN.DEL";
                                           }),
                            config.dictionary.end());
    Hub strange(config);
    strange.start();
    dial(strange.hostString());
    const std::string text = mapWith("--hub $HUB -u demo");
    EXPECT_THAT(tool->error(), HasSubstr("note: 4 tokens of the hub are left out"));
    EXPECT_THAT(text, AllOf(HasSubstr("cmd=AddToken|name=STRANGE|token=70004|storage=int\n"),
                            HasSubstr("cmd=AddToken|name=UNKNOWNTOKEN|token=45028|storage=string\n"),
                            HasSubstr("cmd=AddToken|name=TOKEN.DEL|token=5004|storage=int\n")));
    EXPECT_GE(std::count(text.begin(), text.end(), '\n'), static_cast<long>(before));
    writeFile("map", text);
    EXPECT_EQ(mapWith("-m map"), text);
}

TEST_F(WireHub, RefusesMoreTokensThanItKeeps) {
    // Made before it is asked for, or a slow machine's hub would be silent for too long.
    const std::string answer = "5026=18";
    std::string frames;
    for (int number = 100000; number < 300001; ++number)
        frames += encodeFrame(answer + "|5035=" + std::to_string(number) + "|5010=F");
    frames += encodeFrame(answer + "|5001=0");
    hub.script([frames](const Request& request) -> std::optional<Hub::Frames> {
        return request.command == "ListAvailableTokens" ? std::optional(Hub::Frames{frames}) : std::nullopt;
    });
    EXPECT_EQ(start("tivra-wire --hub $HUB -u demo -t 120 map").waitForEnd(std::chrono::seconds(150)), 6);
    EXPECT_THAT(tool->error(), HasSubstr("the hub lists more than 200000 tokens"));
    EXPECT_EQ(tool->output(), "");
}

TEST_F(WireHub, AsksAgainWhenTheConnectionIsLostBeforeTheEndOfTheList) {
    const std::string whole = mapWith("--hub $HUB -u demo");
    hub.answerWrong("ListAvailableTokens", Hub::Wrong::NoStatus, 1);
    hub.clearRequests();
    start("tivra-wire --hub $HUB -u demo map");
    ASSERT_TRUE(hub.waitForCommand("ListAvailableTokens"));
    hub.dropConnections();
    ASSERT_EQ(tool->waitForEnd(), 0) << tool->error();
    EXPECT_EQ(tool->output(), whole);
}

TEST_F(WireHub, TellsWhyThereIsNoDictionary) {
    const std::string host = hub.hostString();
    const std::string line = "tivra-wire -u demo --hub ";
    expect({{"TIVRA_PASSWORD=secret " + line + "$HUB check", 6, "",
             AllOf(HasSubstr("cannot log in: user \"demo\" at " + host +
                             ", in the login phase: the hub answered -5 "),
                   Not(HasSubstr("secret")))},
            {line + "$CLOSED check", 6, "",
             AllOf(HasSubstr("cannot start a session with " + closedHost + " as \"demo\""),
                   HasSubstr("Check the address and that a hub listens there. Log: "))}});
    hub.refuse("ListAvailableTokens", -18);
    expect(
        {{line + "$HUB check", 6, "", HasSubstr("no dictionary from " + host + ": the hub answered -18 ")}});
    hub.clearRefusals();
    hub.answerWrong("ListAvailableTokens", Hub::Wrong::NoStatus);
    expect({{line + "$HUB -t 4 check", 6, "",
             HasSubstr(" tokens have come, but in 4 seconds not the last; --timeout gives it longer")}});
    hub.setSilent(true);
    expect({{line + "$HUB -t 0.5 check", 6, "",
             HasSubstr("no dictionary from " + host + ": in 0.5 seconds no session stood; --timeout")}});
}

} // namespace
