#include "SimTest.h"

#include <string>

using namespace tivra_sim;

namespace {

class Conflation : public testing::Test {
protected:
    Conflation() { client.ask("5026=30|5022=Subscribe|4=100|5=IBM"); }
    static HubConfig config() {
        HubConfig config = HubConfig::quiet();
        config.conflation = true;
        return config;
    }
    static Record quote(int number) { return Record(100, "IBM").add(token::BID, number); }
    static Record trade(int number) { return Record(100, "IBM").add(token::TRADE_PRICE, number); }
    /// Milliseconds that no test lasts.
    static constexpr const char* NEVER = "600000";
    void setInterval(const std::string& milliseconds) {
        EXPECT_EQ(client.statusOf("5026=3|5022=SetConflationInterval|2029=" + milliseconds), 0);
    }
    std::string nextBid() { return std::string(findValue(client.next().value_or(""), token::BID)); }
    void quotes(int from, int to) {
        for (int number = from; number <= to; ++number)
            hub.pushRecord(quote(number).add(token::BID_SIZE + (number % 2) * 2, number));
    }

    StartedHub hub{config()};
    LoggedIn client{hub};
};

TEST_F(Conflation, MergesByIntervalAndKeepsTradesInTheirPlace) {
    setInterval(NEVER);
    quotes(1, 4);
    hub.pushRecord(trade(7));
    EXPECT_EQ(client.next(), quote(4).body() + "|104=3|102=4");
    EXPECT_EQ(client.next(), trade(7).body());
    quotes(5, 6);
    setInterval("0");
    EXPECT_EQ(nextBid(), "6") << "what has been merged comes when the merging ends";
    quotes(7, 9);
    for (const char* bid : {"7", "8", "9"})
        EXPECT_EQ(nextBid(), bid);
    setInterval("1");
    quotes(10, 10);
    EXPECT_EQ(nextBid(), "10") << "and when the interval is over";
    setInterval(NEVER);
    quotes(11, 11);
    EXPECT_EQ(client.statusOf("5026=31|5022=Unsubscribe|5052=30"), 0);
    setInterval("0");
    client.send("5026=17|5022=ReportApiStats|13912=0");
    EXPECT_EQ(client.next(), "5026=17|5001=0") << "nothing of a symbol that was left";
}

TEST_F(Conflation, APlaybackIsOverWithTheLastOfWhatIsMerged) {
    HubConfig config = this->config();
    int left = 100;
    config.playback.bodies = [&left, body = std::string()](TimedBody& message) mutable {
        body = quote(left).body();
        message.body = body;
        return left-- > 0;
    };
    StartedHub playing(config);
    LoggedIn reader(playing);
    EXPECT_EQ(reader.statusOf("5026=3|5022=SetConflationInterval|2029=" + std::string(NEVER)), 0);
    reader.ask("5026=30|5022=Subscribe|4=100|5=IBM");
    playing.startPlayback();
    EXPECT_TRUE(playing.waitFor([](const HubStatistics& now) { return now.playbackEvents == 100; }));
    EXPECT_FALSE(playing.statistics().playbackFinished);
    reader.send("5026=3|5022=SetConflationInterval|2029=0");
    EXPECT_TRUE(playing.waitForPlayback());
    EXPECT_EQ(playing.statistics().playbackSent, 1U);
}

TEST_F(Conflation, JustInTimeFollowsTheClientsReports) {
    for (const int type : {3, 4}) {
        SCOPED_TRACE(type);
        setInterval("100");
        EXPECT_EQ(client.statusOf("5026=4|5022=SetConflationType|3683=50|2035=" + std::to_string(type)), 0);
        // The hub's own thread publishes, so that nothing comes between the updates.
        const auto report = [&](int percent, int from, int to) {
            hub.script([this, from, to](const Request&) -> std::optional<Hub::Frames> {
                quotes(from, to);
                return std::nullopt;
            });
            client.send("5026=17|5022=ReportApiStats|13912=" + std::to_string(percent));
        };
        report(49, 1, 2);
        EXPECT_EQ(nextBid(), "1");
        EXPECT_EQ(nextBid(), "2");
        EXPECT_EQ(client.next(), "5026=17|5001=0");
        report(50, 3, 3);
        EXPECT_EQ(nextBid(), "3");
        EXPECT_EQ(client.next(), "5026=17|5001=0");
        EXPECT_EQ(client.next(), Record(SYSTEM_SOURCE, JIT_SYMBOL).add(token::CONFLATION, type).body());
        report(50, 4, 6);
        EXPECT_EQ(client.next(), "5026=17|5001=0");
        EXPECT_EQ(nextBid(), "6");
        report(10, 7, 9); // and what is merged comes at once
        EXPECT_EQ(client.next(), "5026=17|5001=0");
        EXPECT_EQ(client.next(), Record(SYSTEM_SOURCE, JIT_SYMBOL).add(token::CONFLATION, 0).body());
        EXPECT_EQ(nextBid(), "9");
        hub.script(nullptr);
    }
}

} // namespace
