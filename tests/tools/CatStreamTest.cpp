#include "ToolFixture.h"

#include <algorithm>
#include <csignal>

using namespace tivra_sim;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

class CatStream : public ToolFixture {
protected:
    static std::size_t lineCount(const std::string& text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }
    /// A hub that plays 20,000 events at full speed.
    static HubConfig playing() {
        HubConfig config = HubConfig::realistic();
        config.playback.file = TIVRA_SAMPLE_DAY;
        config.playback.startWhenSubscriptions = 4;
        config.playback.maxEvents = 20000;
        return config;
    }
};

TEST_F(CatStream, EachCommandDeliversUpdatesUntilTheCountIsReached) {
    const struct {
        const char* arguments;
        const char* request;            ///< as the hub gets it
        std::vector<std::string> types; ///< of the data messages in order
    } rows[] = {
        {"subscribe 101:IBM131221C185", "Subscribe", {"update"}},
        {"subscribe --snapshot 101:IBM131221C185", "QuerySnapAndSubscribe", {"image-part", "update"}},
        {"depth --subscribe 101:IBM131221C185", "QueryDepthAndSubscribe", {"image-part", "update"}},
        {"wildcard --updates '101:I*C185'", "SubscribeWildCard", {"update"}},
        {"wildcard --subscribe '101:I*C185'", "QuerySnapAndSubscribeWildCard", {"image-part", "update"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        start("tivra-cat $AT -o json --count " + std::to_string(row.types.size()) + " " + row.arguments);
        ASSERT_TRUE(hub.waitForCommand(row.request, kPatience)) << tool->error();
        ASSERT_TRUE(waitForSubscription());
        const std::string update = encodeFrame(Record(101, "IBM131221C185").add(token::BID, "1.5").body());
        hub.sendRaw(update + update); // one more than is wanted
        ASSERT_EQ(tool->waitForEnd(), 0) << tool->error();
        std::vector<std::string> types;
        for (const nlohmann::json& line : jsonLines(tool->output())) {
            if (line["type"] == "update") {
                EXPECT_EQ(line["fields"]["BID"], 1.5);
            }
            if (line["type"] != "status" && line["type"] != "image-complete")
                types.push_back(line["type"]);
        }
        EXPECT_EQ(types, row.types);
        ASSERT_TRUE(hub.waitForConnections(0, kPatience));
    }
}

TEST_F(CatStream, RowsStayAlignedWhenAFieldComesLater) {
    start("tivra-cat $AT -F received,QUOTE.DATETIME,BID,SIZE=BID.SIZE,ASK -n 2 subscribe 100:IBM");
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.25", 100));
    hub.pushRecord(Record(100, "IBM").add(token::ASK, "184.5"));
    ASSERT_EQ(tool->waitForEnd(), 0) << tool->error();
    EXPECT_THAT(tool->output(),
                MatchesRegex("source  symbol    received      QUOTE.DATETIME +BID +SIZE +ASK\n"
                             "   100  IBM       ..:..:..\\....  2013-10-07 13:30:00.500    184.25       100\n"
                             "   100  IBM       ..:..:..\\.... {50}184.5\n"));
    EXPECT_THAT(tool->error(), Not(HasSubstr("no message had")));
}

TEST_F(CatStream, EveryShowsOnlyTheLatestValuesAndCountsAll) {
    start("tivra-cat $AT --every 600 -n 51 -F BID,BID.SIZE subscribe 100:IBM");
    ASSERT_TRUE(waitForSubscription());
    for (int i = 1; i <= 50; ++i)
        hub.pushRecord(quote("IBM", "184.25", i));
    hub.pushRecord(Record(100, "IBM").add(token::BID, "185"));
    ASSERT_EQ(tool->waitForEnd(), 0) << tool->error();
    // The header, perhaps a row at the first look, and the last state.
    EXPECT_LE(lineCount(tool->output()), 3U);
    EXPECT_THAT(tool->output(), HasSubstr("   100  IBM            185        50\n"));
    EXPECT_THAT(tool->error(), AllOf(HasSubstr("received 51 messages"), HasSubstr("lost 0")));
}

TEST_F(CatStream, SignalOrDurationEndsTheStreamWithASummary) {
    for (const int number : {SIGINT, SIGTERM}) {
        start("tivra-cat $AT -o raw subscribe 100:IBM");
        ASSERT_TRUE(waitForSubscription());
        hub.pushRecord(quote("IBM", "184.25", 100));
        ASSERT_TRUE(tool->waitForOutput(contains("101=184.25"))) << tool->error();
        tool->signal(number);
        ASSERT_EQ(tool->waitForEnd(), 0);
        EXPECT_THAT(tool->error(),
                    AllOf(HasSubstr("received 1 messages (1 updates"), HasSubstr("1 answered")));
        ASSERT_TRUE(hub.waitForConnections(0, kPatience));
    }
    expect({{"tivra-cat $AT --duration 0.3 subscribe 100:IBM", 0, "", HasSubstr("received 0 messages")}});
}

TEST_F(CatStream, RefusedSubscriptionEndsItOnlyWhenNoneIsLeft) {
    EXPECT_EQ(run("tivra-cat $AT subscribe 100:NOPE"), 5);
    start("tivra-cat $AT -n 1 subscribe 100:NOPE 100:IBM");
    ASSERT_TRUE(tool->waitForError(contains("100:NOPE: refused: -12 ERR.EXIST.SYMBOL")));
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.25", 100));
    EXPECT_EQ(tool->waitForEnd(), 5);
    EXPECT_THAT(tool->output(), HasSubstr("184.25"));
}

TEST_F(CatStream, AtFullSpeedEveryUpdateIsPrintedInItsOrder) {
    for (const std::string compression : {"--no-compression", "--compression"}) {
        Hub player(playing());
        player.start();
        dial(player.hostString());
        EXPECT_EQ(run("tivra-cat -H $HUB -u demo --read-timeout 60 --queue-size 256 --buffer 30000 -o raw -n "
                      "20000 " +
                      compression + " subscribe -s 100 AIG BAC IBM SPY"),
                  0)
            << tool->error();
        std::istringstream lines(tool->output());
        int last = 0;
        for (std::string line; std::getline(lines, line);) {
            const std::string_view sequence = findValue(line, token::SEQUENCE);
            ASSERT_EQ(sequence, sequence.empty() ? "" : std::to_string(++last)) << compression;
        }
        EXPECT_EQ(last, 20000) << compression;
    }
}

TEST_F(CatStream, SlowOutputDropsAndSaysSoInsteadOfBlocking) {
    Hub player(playing());
    player.start();
    dial(player.hostString());
    const int pipe = makePipe("pipe");
    start("tivra-cat $AT -o json --buffer 500 --queue-size 16 -n 20000 subscribe -s 100 AIG BAC IBM SPY > "
          "pipe");
    ASSERT_TRUE(player.waitForPlayback()) << "the callbacks wait for the output";
    ASSERT_TRUE(player.waitForConnections(0, kPatience)) << "not all was received";
    const std::string output = readPipe(pipe);
    EXPECT_EQ(tool->waitForEnd(), 7);
    const std::string error = tool->error();
    const std::string word = "; lost ";
    const std::size_t at = error.find(word);
    ASSERT_NE(at, std::string::npos) << error;
    const std::size_t lost = std::stoul(error.substr(at + word.size()));
    EXPECT_GT(lost, 0U);
    EXPECT_EQ(lineCount(output) + lost, 20004U) << "updates and the four answers";
}

TEST_F(CatStream, ClosedPipeEndsIt) {
    const int pipe = makePipe("pipe");
    start("tivra-cat $AT -o raw subscribe 100:IBM > pipe");
    ASSERT_TRUE(waitForSubscription());
    close(pipe);
    hub.pushRecord(quote("IBM", "184.25", 100));
    EXPECT_EQ(tool->waitForEnd(), 8);
}

} // namespace
