#include "ToolFixture.h"

#include "tivra_sim/GroupConfig.h"
#include <tivra_testkit/RawClient.h>

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class HubProgram : public ToolFixture {
protected:
    std::unique_ptr<tivra_testkit::RawClient> connect(std::size_t place = 0) {
        const std::string address = listeningAt(*tool, place);
        return std::make_unique<tivra_testkit::RawClient>(
            static_cast<std::uint16_t>(std::stoi(address.substr(address.find(':') + 1))));
    }
};

TEST_F(HubProgram, OnceEndsWithItsCountsWhenThePlaybackIsOutAndTheClientHasGone) {
    writeFile("secret", "open sesame\n");
    start("tivra-hub -v --once --heartbeat 0 --hub-status 0 --full-speed --max-events 50 --start-when 4 "
          "-f " TIVRA_SAMPLE_DAY " --user ali --password-file secret");
    const auto client = connect();
    EXPECT_EQ(client->statusOf("5026=1|5022=LoginUser|5028=ali|5029=open sesame"), 0);
    EXPECT_EQ(client->statusOf("5022=Subscribe|4=100|5026=30"), 0);
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(client->next());
    client->close();
    EXPECT_EQ(tool->waitForEnd(), 0);
    EXPECT_THAT(tool->output(), AllOf(HasSubstr("5029=***"), Not(HasSubstr("sesame")),
                                      HasSubstr("sent 50 messages (50 of playback, 50 events played)")));
}

TEST_F(HubProgram, PlaybackStartsAtTheFirstSubscriptionAndTheSummarySaysWhenThereWasNone) {
    for (const bool subscribes : {true, false}) {
        start("SECRET=demo tivra-hub --once --heartbeat 0 --hub-status 0 --full-speed --max-events 50 "
              "--user demo --password-env SECRET -f " TIVRA_SAMPLE_DAY);
        const auto client = connect();
        client->logIn();
        if (subscribes) {
            EXPECT_EQ(client->statusOf("5022=Subscribe|4=100|5=IBM|5026=30"), 0);
        }
        client->close();
        EXPECT_EQ(tool->waitForEnd(), subscribes ? 0 : 5);
        const std::string waiting =
            "the playback starts when 1 symbol is subscribed at " + listeningAt(*tool) + "\n";
        EXPECT_THAT(tool->output(),
                    AllOf(HasSubstr("\n" + waiting),
                          HasSubstr(subscribes ? "50 events played" : "nothing was played: " + waiting)));
    }
}

TEST_F(HubProgram, AGroupServesOnAPortForEachMember) {
    start("tivra-hub -v --once --group " TIVRA_GROUP_FILE);
    ASSERT_NE(listeningAt(*tool, 2), "");
    std::vector<std::unique_ptr<tivra_testkit::RawClient>> clients;
    for (std::size_t member = 0; member < 3; ++member) {
        clients.push_back(connect(member));
        clients.back()->logIn();
    }
    EXPECT_THAT(clients[1]->ask("5026=5|5022=ListAdministrationInfo").front(), HasSubstr("=V7.4.0|"));
    EXPECT_EQ(clients[2]->statusOf("5026=6|5022=QuerySnap|4=300|5=ZBOND"), -218);
    clients.clear();
    EXPECT_EQ(tool->waitForEnd(), 0);
    EXPECT_THAT(tool->output(), AllOf(HasSubstr("hub 2, connection 1: 5026=6|5022=QuerySnap|4=300|5=ZBOND"),
                                      HasSubstr("5 requests on 3 connections")));
}

TEST_F(HubProgram, AGroupPrintsItsConfigurationAsAFileCanHaveIt) {
    EXPECT_EQ(run("tivra-hub --print-config --group " TIVRA_GROUP_FILE), 0);
    const tivra_sim::GroupConfig read = tivra_sim::GroupConfig::fromJson(tool->output());
    EXPECT_EQ(read.toJson(tivra_sim::HubConfig::Passwords::Hide) + "\n", tool->output());
}

TEST_F(HubProgram, LoadIsAMixThatEveryMessageOfWhichCanBeReadAndItsSummarySaysWhatItCost) {
    start("tivra-hub --load 50:5000:10");
    const std::unique_ptr<Process> hubProgram = std::move(tool);
    dial(listeningAt(*hubProgram));
    // The queue holds more than the hub makes in ten seconds: a busy machine may be slow, and loses nothing.
    ASSERT_EQ(run("tivra-cat $AT -o json --queue-size 64 -n 3000 --sequence-field 30 subscribe -s 100"), 0)
        << tool->error();
    std::size_t quotes = 0;
    std::size_t trades = 0;
    std::size_t wide = 0;
    std::size_t texts = 0;
    for (const nlohmann::json& line : jsonLines(tool->output())) {
        quotes += line["fields"].contains("BID") ? 1U : 0U;
        trades += line["fields"].contains("TRADE.PRICE") ? 1U : 0U;
        wide += line["fields"].contains("BID") && line["fields"].contains("TRADE.PRICE") ? 1U : 0U;
        texts += line["fields"].contains("SYMBOL.NAME") ? 1U : 0U;
    }
    EXPECT_GT(quotes, 2000U);
    EXPECT_GT(trades, 400U);
    EXPECT_GT(wide, 50U);
    EXPECT_GT(texts, 3U);
    hubProgram->signal(SIGTERM);
    EXPECT_EQ(hubProgram->waitForEnd(), 0);
    EXPECT_THAT(hubProgram->output(),
                AllOf(HasSubstr(" of 5000 wanted"), HasSubstr("0 of 1 clients were slow")));
}

} // namespace
