#include "RawClient.h"

#include <gmock/gmock.h>

#include <string>

using namespace tivra_sim;
using namespace std::chrono_literals;

namespace {

class Conflation : public testing::Test {
protected:
    Conflation() : hub(config()), client(started(hub)) {
        client.logIn();
        client.ask("5026=30|5022=Subscribe|4=100|5=IBM");
    }
    static HubConfig config() {
        HubConfig config = quietConfig();
        config.conflation = true;
        return config;
    }
    static Hub& started(Hub& hub) {
        hub.start();
        return hub;
    }
    static Record quote(int number) { return Record(100, "IBM").add(token::BID, number); }
    static Record trade(int number) { return Record(100, "IBM").add(token::TRADE_PRICE, number); }
    void quotes(int from, int to) {
        for (int number = from; number <= to; ++number)
            hub.pushRecord(quote(number).add(token::BID_SIZE + (number % 2) * 2, number));
    }

    Hub hub;
    RawClient client;
};

TEST_F(Conflation, MergesByIntervalAndKeepsTradesInTheirPlace) {
    EXPECT_EQ(client.statusOf("5026=3|5022=SetConflationInterval|2029=200"), 0);
    quotes(1, 4);
    hub.pushRecord(trade(7));
    quotes(5, 6);
    EXPECT_EQ(client.next(), quote(4).body() + "|104=3|102=4");
    EXPECT_EQ(client.next(), trade(7).body());
    const std::optional<std::string> last = client.next();
    ASSERT_TRUE(last);
    EXPECT_EQ(findValue(*last, token::BID), "6");
    EXPECT_EQ(client.statusOf("5026=3|5022=SetConflationInterval|2029=0"), 0);
    quotes(7, 9);
    for (int number = 7; number <= 9; ++number)
        EXPECT_EQ(findValue(client.next().value_or(""), token::BID), std::to_string(number));
}

TEST_F(Conflation, JustInTimeFollowsTheClientsReports) {
    for (const int type : {3, 4}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(client.statusOf("5026=3|5022=SetConflationInterval|2029=150"), 0);
        EXPECT_EQ(client.statusOf("5026=4|5022=SetConflationType|3683=50|2035=" + std::to_string(type)), 0);
        const auto report = [&](int percent) {
            client.send("5026=17|5022=ReportApiStats|13912=" + std::to_string(percent));
            EXPECT_EQ(client.next(), "5026=17|5001=0");
        };
        quotes(1, 2);
        for (const char* bid : {"1", "2"})
            EXPECT_EQ(findValue(client.next().value_or(""), token::BID), bid);
        report(49);
        report(50);
        EXPECT_EQ(client.next(), Record(SYSTEM_SOURCE, JIT_SYMBOL).add(token::CONFLATION, type).body());
        quotes(3, 5);
        EXPECT_EQ(findValue(client.next().value_or(""), token::BID), "5");
        quotes(6, 8);
        report(10); // and what is merged comes at once
        EXPECT_EQ(client.next(), Record(SYSTEM_SOURCE, JIT_SYMBOL).add(token::CONFLATION, 0).body());
        EXPECT_EQ(findValue(client.next().value_or(""), token::BID), "8");
    }
}

} // namespace
