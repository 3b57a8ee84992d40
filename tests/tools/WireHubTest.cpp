// tivra-wire with the dictionary of a hub.
#include "CatFixture.h"

using namespace tivra_sim;
using namespace std::string_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

class WireHub : public CatFixture {
protected:
    WireHub() { setup.program = TIVRA_WIRE_PROGRAM; }

    int runWire(const Hub& server, const Arguments& arguments,
                std::chrono::milliseconds deadline = std::chrono::seconds(60)) {
        Arguments all{"--hub", server.hostString(), "-u", "demo"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return startBare(all).waitForEnd(deadline);
    }

    static std::string frameOf(const std::string& body) {
        return "\x04 \0\0\0"s + static_cast<char>(body.size()) + body + '\x03';
    }
};

} // namespace

TEST_F(WireHub, WritesEveryTokenOfTheHubAsAMapFileThatLoadsToTheSame) {
    const std::map<std::string, std::string> storages{
        {"STRING", "string"}, {"BOOL", "int"},    {"DATETIME", "double"}, {"FLOAT", "double"},
        {"INTEGER", "int"},   {"DATE", "double"}, {"YEAR", "double"},     {"MONTHYEAR", "double"}};
    std::map<int, std::string> expected;
    for (const DictionaryRow& row : HubConfig::realistic().dictionary)
        expected[row.number] = "cmd=AddToken|name=" + row.name + "|token=" + std::to_string(row.number) +
                               "|storage=" + storages.at(row.type);
    ASSERT_GT(expected.size(), 200U);
    ASSERT_EQ(runWire(hub, {"map"}), 0) << cat->error();
    EXPECT_EQ(cat->error(), "");
    const std::string text = cat->output();
    for (const auto& [number, line] : expected)
        EXPECT_THAT(text, HasSubstr(line + "\n"));
    ASSERT_EQ(runWire(hub, {"--no-compression", "map", "-o", directory + "/map"}), 0) << cat->error();
    // A short name of a file may name a token of the hub, and the map that is written keeps it.
    const std::string names = writeFile("names", "cmd=AddShortName|name=BID|shortname=b\n");
    setup.input = frameOf("5=IBM|101=1.5");
    ASSERT_EQ(runWire(hub, {"--map", names, "convert", "--blanks"}), 0) << cat->error();
    EXPECT_EQ(cat->output(), "SYMBOL.TICKER=IBM b=1.5\n");
    startBare({"--map", directory + "/map", "--map", names, "map"});
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    std::string named = text;
    const std::string bid = expected.at(token::BID) + "\n";
    named.insert(named.find(bid) + bid.size(), "cmd=AddShortName|name=BID|shortname=b\n");
    EXPECT_EQ(cat->output(), named);
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
    ASSERT_EQ(runWire(strange, {"map"}), 0) << cat->error();
    EXPECT_THAT(cat->error(), HasSubstr("note: 4 tokens of the hub are left out"));
    const std::string text = cat->output();
    EXPECT_THAT(text, HasSubstr("cmd=AddToken|name=STRANGE|token=70004|storage=int\n"));
    EXPECT_THAT(text, HasSubstr("cmd=AddToken|name=UNKNOWNTOKEN|token=45028|storage=string\n"));
    EXPECT_THAT(text, HasSubstr("cmd=AddToken|name=TOKEN.DEL|token=5004|storage=int\n"));
    EXPECT_GE(std::count(text.begin(), text.end(), '\n'), static_cast<long>(before));
    startBare({"--map", writeFile("map", text), "map"});
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_EQ(cat->output(), text);
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
    EXPECT_EQ(runWire(hub, {"-t", "120", "map"}, std::chrono::seconds(150)), 6);
    EXPECT_THAT(cat->error(), HasSubstr("the hub lists more than 200000 tokens"));
    EXPECT_EQ(cat->output(), "");
}

TEST_F(WireHub, AsksAgainWhenTheConnectionIsLostBeforeTheEndOfTheList) {
    ASSERT_EQ(runWire(hub, {"map"}), 0) << cat->error();
    const std::string whole = cat->output();
    hub.answerWrong("ListAvailableTokens", Hub::Wrong::NoStatus, 1);
    hub.clearRequests();
    startBare({"--hub", hub.hostString(), "-u", "demo", "map"});
    ASSERT_TRUE(hub.waitForCommand("ListAvailableTokens"));
    hub.dropConnections();
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_EQ(cat->output(), whole);
}

TEST_F(WireHub, TellsWhyThereIsNoDictionary) {
    const std::string host = hub.hostString();
    const auto expectFailure = [this](const std::string& expected, const Arguments& arguments) {
        EXPECT_EQ(runWire(hub, arguments), 6) << expected;
        EXPECT_THAT(cat->error(), HasSubstr(expected));
        EXPECT_THAT(cat->error(), Not(HasSubstr("secret")));
        EXPECT_EQ(cat->output(), "");
    };
    setup.environment["TIVRA_PASSWORD"] = "secret";
    expectFailure("cannot log in: user \"demo\" at " + host + ", in the login phase: the hub answered -5 ",
                  {"check"});
    setup.environment["TIVRA_PASSWORD"] = "demo";
    hub.refuse("ListAvailableTokens", -18);
    expectFailure("no dictionary from " + host + ": the hub answered -18 ", {"check"});
    hub.clearRefusals();
    hub.answerWrong("ListAvailableTokens", Hub::Wrong::NoStatus);
    expectFailure(" tokens have come, but in 4 seconds not the last; --timeout gives it longer",
                  {"-t", "4", "check"});
    hub.setSilent(true);
    expectFailure("no dictionary from " + host + ": in 0.5 seconds no session stood; --timeout",
                  {"-t", "0.5", "check"});
    const ClosedPort closed;
    startBare({"--hub", closed.hostString(), "-u", "demo", "check"});
    EXPECT_EQ(cat->waitForEnd(), 6);
    EXPECT_THAT(cat->error(),
                HasSubstr("cannot start a session with " + closed.hostString() + " as \"demo\""));
    EXPECT_THAT(cat->error(), HasSubstr("Check the address and that a hub listens there. Log: "));
}
