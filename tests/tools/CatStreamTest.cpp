#include "CatFixture.h"

#include <csignal>

using namespace tivra_sim;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

class CatStream : public CatFixture {
protected:
    static std::size_t lineCount(const std::string& text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    /// A hub that plays the sample day once four symbols are subscribed.
    static HubConfig playing(std::size_t maxEvents) {
        HubConfig config = HubConfig::realistic();
        config.playback.file = TIVRA_SAMPLE_DAY;
        config.playback.startWhenSubscriptions = 4;
        config.playback.maxEvents = maxEvents;
        return config;
    }
};

struct StreamCase {
    const char* name;
    std::vector<std::string> arguments;
    const char* command;
    std::vector<std::string> types; ///< of the data messages in order, one update being pushed
};

void PrintTo(const StreamCase& parameter, std::ostream* out) {
    *out << parameter.name;
}

class CatStreams : public CatStream, public testing::WithParamInterface<StreamCase> {};

const StreamCase STREAMS[] = {
    {"Subscribe", {"subscribe", "100:IBM"}, "Subscribe", {"update"}},
    {"SnapshotThenUpdates",
     {"subscribe", "--snapshot", "100:IBM"},
     "QuerySnapAndSubscribe",
     {"image-part", "update"}},
    {"DepthThenUpdates",
     {"depth", "--subscribe", "101:IBM131221C185"},
     "QueryDepthAndSubscribe",
     {"image-part", "update"}},
    {"WildcardUpdates", {"wildcard", "--updates", "100:I*"}, "SubscribeWildCard", {"update"}},
    {"WildcardThenUpdates",
     {"wildcard", "--subscribe", "100:I*"},
     "QuerySnapAndSubscribeWildCard",
     {"image-part", "update"}},
};

} // namespace

TEST_P(CatStreams, DeliverUpdatesUntilTheCountIsReached) {
    const StreamCase& stream = GetParam();
    std::vector<std::string> arguments{"-o", "json", "--count", std::to_string(stream.types.size())};
    arguments.insert(arguments.end(), stream.arguments.begin(), stream.arguments.end());
    start(arguments);
    ASSERT_TRUE(hub.waitForCommand(stream.command, PATIENCE)) << cat->error();
    ASSERT_TRUE(waitForSubscription());
    const bool isOption = stream.arguments.back().rfind("101:", 0) == 0;
    const Record update =
        Record(isOption ? 101 : 100, isOption ? "IBM131221C185" : "IBM").add(token::BID, "1.5");
    ASSERT_EQ(hub.pushRecord(update), 1U);
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    std::vector<std::string> types;
    for (const nlohmann::json& line : jsonLines(cat->output())) {
        if (line["type"] == "update") {
            EXPECT_EQ(line["fields"]["BID"], 1.5);
        }
        if (line["type"] != "status" && line["type"] != "image-complete")
            types.push_back(line["type"]);
    }
    EXPECT_EQ(types, stream.types);
}

INSTANTIATE_TEST_SUITE_P(Commands, CatStreams, testing::ValuesIn(STREAMS),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(CatStream, RowsStayAlignedWhenAFieldComesLater) {
    start({"-F", "received,QUOTE.DATETIME,BID,SIZE=BID.SIZE,ASK", "-n", "2", "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.25", 100));
    hub.pushRecord(Record(100, "IBM").add(token::ASK, "184.5"));
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_THAT(cat->output(),
                MatchesRegex("source  symbol    received      QUOTE.DATETIME +BID +SIZE +ASK\n"
                             "   100  IBM       ..:..:..\\....  2013-10-07 13:30:00.500    184.25       100\n"
                             "   100  IBM       ..:..:..\\.... {50}184.5\n"));
    EXPECT_THAT(cat->error(), Not(HasSubstr("no message had")));
}

TEST_F(CatStream, EveryShowsOnlyTheLatestValuesAndCountsAll) {
    start({"--every", "600", "-n", "51", "-F", "BID,BID.SIZE", "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    for (int i = 1; i <= 50; ++i)
        hub.pushRecord(quote("IBM", "184.25", i));
    hub.pushRecord(Record(100, "IBM").add(token::BID, "185"));
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    // The header, perhaps a row at the first look, and the last state.
    EXPECT_LE(lineCount(cat->output()), 3U);
    EXPECT_THAT(cat->output(), HasSubstr("   100  IBM            185        50\n"));
    EXPECT_THAT(cat->error(), AllOf(HasSubstr("received 51 messages"), HasSubstr("lost 0")));
}

TEST_F(CatStream, SignalEndsTheStreamWithASummary) {
    for (const int number : {SIGINT, SIGTERM}) {
        start({"-o", "raw", "subscribe", "100:IBM"});
        ASSERT_TRUE(waitForSubscription());
        hub.pushRecord(quote("IBM", "184.25", 100));
        ASSERT_TRUE(cat->waitForOutput(contains("101=184.25"))) << cat->error();
        cat->signal(number);
        ASSERT_EQ(cat->waitForEnd(), 0);
        EXPECT_THAT(cat->error(),
                    AllOf(HasSubstr("received 1 messages (1 updates"), HasSubstr("1 answered")));
        ASSERT_TRUE(hub.waitForConnections(0, PATIENCE));
    }
}

TEST_F(CatStream, DurationEndsTheStream) {
    EXPECT_EQ(run({"--duration", "0.3", "subscribe", "100:IBM"}), 0);
    EXPECT_THAT(cat->error(), HasSubstr("received 0 messages"));
}

TEST_F(CatStream, RefusedSubscriptionEndsItOnlyWhenNoneIsLeft) {
    EXPECT_EQ(run({"subscribe", "100:NOPE"}), 5);
    start({"-n", "1", "subscribe", "100:NOPE", "100:IBM"});
    ASSERT_TRUE(cat->waitForError(contains("100:NOPE: refused: -12 ERR.EXIST.SYMBOL")));
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.25", 100));
    EXPECT_EQ(cat->waitForEnd(), 5);
    EXPECT_THAT(cat->output(), HasSubstr("184.25"));
}

TEST_F(CatStream, TheWholeSampleDayArrivesCompleteAndInOrderPlainAndCompressed) {
    for (const char* output : {"json", "quiet"}) {
        Hub player(playing(0));
        player.start();
        const bool isQuiet = std::string(output) == "quiet";
        common[0] = isQuiet ? "--compression" : "--no-compression";
        startAt(player, {"--queue-size", "16", "--sequence-field", "FEED.SEQUENCE", "-n", "40000",
                         isQuiet ? "--quiet" : "--output=json", "--fields=FEED.SEQUENCE", "subscribe", "-s",
                         "100", "AIG", "BAC", "IBM", "SPY"});
        ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
        EXPECT_THAT(cat->error(), AllOf(HasSubstr("received 40000 messages (40000 updates"),
                                        HasSubstr("lost 0 (output 0, sequence 0, receive queue 0 bytes)")));
        EXPECT_EQ(player.statistics().playbackSent, 40000U);
        EXPECT_EQ(player.waitForCommand("LoginUser")->value(token::COMPRESSION), isQuiet ? "1" : "0");
        std::int64_t expected = 0;
        for (const nlohmann::json& line : jsonLines(cat->output())) {
            if (line["type"] == "update") {
                ASSERT_EQ(line["fields"]["FEED.SEQUENCE"], ++expected);
            }
        }
        EXPECT_EQ(expected, isQuiet ? 0 : 40000);
    }
}

TEST_F(CatStream, SlowOutputDropsAndSaysSoInsteadOfBlocking) {
    Hub player(playing(20000));
    player.start();
    setup.collectsOutput = false;
    startAt(player, {"-o", "json", "--buffer", "500", "--queue-size", "16", "-n", "20000", "subscribe", "-s",
                     "100", "AIG", "BAC", "IBM", "SPY"});
    ASSERT_TRUE(player.waitForPlayback()) << "the callbacks wait for the output";
    ASSERT_TRUE(player.waitForConnections(0, PATIENCE)) << "not all was received";
    cat->collectOutput();
    EXPECT_EQ(cat->waitForEnd(), 7);
    const std::string error = cat->error();
    const std::string word = "; lost ";
    const std::size_t at = error.find(word);
    ASSERT_NE(at, std::string::npos) << error;
    const std::size_t lost = std::stoul(error.substr(at + word.size()));
    EXPECT_GT(lost, 0U);
    EXPECT_EQ(lineCount(cat->output()) + lost, 20004U) << "updates and the four answers";
}

TEST_F(CatStream, ClosedPipeEndsIt) {
    setup.collectsOutput = false;
    start({"-o", "raw", "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    cat->closeOutput();
    hub.pushRecord(quote("IBM", "184.25", 100));
    EXPECT_EQ(cat->waitForEnd(), 8);
}

TEST_F(CatStream, GapInTheSequenceIsALoss) {
    start({"-q", "--sequence-field", "30", "-n", "3", "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    for (const int sequence : {7, 8, 12})
        hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, sequence));
    EXPECT_EQ(cat->waitForEnd(), 7);
    EXPECT_THAT(cat->error(), HasSubstr("lost 3 (output 0, sequence 3"));
    EXPECT_EQ(cat->output(), "");
}

TEST_F(CatStream, LostHubIsToldAndWatchedSymbolsComeBack) {
    start({"--watchlist", "-o", "raw", "-n", "2", "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.25", 100));
    ASSERT_TRUE(cat->waitForOutput(contains("101=184.25"))) << cat->error();
    hub.dropConnections();
    ASSERT_TRUE(cat->waitForError(contains("session: "))) << cat->error();
    ASSERT_TRUE(waitForSubscription());
    hub.pushRecord(quote("IBM", "184.5", 100));
    EXPECT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_THAT(cat->output(), HasSubstr("101=184.5"));
}
