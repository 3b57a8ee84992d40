#include "RawClient.h"
#include "tivra_sim/GroupConfig.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// The program tivra-hub under test, with its standard output and errors in one stream.
class HubProgram {
public:
    explicit HubProgram(const std::string& arguments)
        : m_pipe(::popen(("exec " TIVRA_HUB_PROGRAM " " + arguments + " 2>&1").c_str(), "re")) {}
    ~HubProgram() {
        if (m_pipe != nullptr)
            exitCode();
    }
    HubProgram(const HubProgram&) = delete;
    HubProgram& operator=(const HubProgram&) = delete;

    std::string line() {
        std::string text;
        for (int byte = 0; (byte = std::fgetc(m_pipe)) != EOF && byte != '\n';)
            text.push_back(static_cast<char>(byte));
        return text;
    }
    std::string rest() {
        std::string text;
        for (int byte = 0; (byte = std::fgetc(m_pipe)) != EOF;)
            text.push_back(static_cast<char>(byte));
        return text;
    }
    int exitCode() {
        const int status = ::pclose(m_pipe);
        m_pipe = nullptr;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    std::FILE* m_pipe;
};

} // namespace

TEST(TivraHub, WhatCannotBeStartedSaysWhyAndExitsAsDocumented) {
    const std::string badConfig = testing::TempDir() + "tivra_hub_bad.json";
    std::ofstream(badConfig) << R"({"playback": {"sped": 1}})";
    const std::vector<std::tuple<std::string, int, std::string>> cases{
        {"--bogus", 2, "--bogus"},
        {"--topology ring", 2, "ring not in"},
        {"--user eve", 2, "needs --password-env or --password-file"},
        {"--user eve --password-env TIVRA_NO_SUCH_VARIABLE", 2, "TIVRA_NO_SUCH_VARIABLE"},
        {"-c " + badConfig, 2, "\"playback.sped\": unknown key"},
        {"--group /no/such/group.json", 2, "/no/such/group.json"},
        {"--group " TIVRA_GROUP_FILE " --port 1", 2, "excludes"},
        {"--bind nowhere", 3, "\"nowhere\""},
        {"--start-when 0", 2, "--start-when"},
        {"--playback /no/such/day", 4, "/no/such/day"}};
    for (const auto& [arguments, code, reason] : cases) {
        HubProgram program(arguments);
        EXPECT_THAT(program.rest(), HasSubstr(reason));
        EXPECT_EQ(program.exitCode(), code) << arguments;
    }
}

TEST(TivraHub, OnceEndsWithItsCountsWhenThePlaybackIsOutAndTheClientHasGone) {
    const std::string secret = testing::TempDir() + "tivra_hub_secret";
    std::ofstream(secret) << "open sesame\n";
    HubProgram program("-v --once --heartbeat 0 --hub-status 0 --full-speed --max-events 50 --start-when 4 "
                       "-f " TIVRA_SAMPLE_DAY " --user ali --password-file " +
                       secret);
    const std::string listening = program.line();
    ASSERT_THAT(listening, HasSubstr("listening on 127.0.0.1:"));
    RawClient client(static_cast<std::uint16_t>(std::stoi(listening.substr(listening.rfind(':') + 1))));
    EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=ali|5029=open sesame"), 0);
    EXPECT_EQ(client.statusOf("5022=Subscribe|4=100|5026=30"), 0);
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(client.next());
    client.close();
    const std::string output = program.rest();
    EXPECT_THAT(output, HasSubstr("5029=***"));
    EXPECT_THAT(output, testing::Not(HasSubstr("sesame")));
    EXPECT_THAT(output, HasSubstr("sent 50 messages (50 of playback, 50 events played)"));
    EXPECT_EQ(program.exitCode(), 0);
}

TEST(TivraHub, PlaybackStartsAtTheFirstSubscriptionAndTheSummarySaysWhenThereWasNone) {
    for (const bool subscribes : {true, false}) {
        HubProgram program(
            "--once --heartbeat 0 --hub-status 0 --full-speed --max-events 50 -f " TIVRA_SAMPLE_DAY);
        const std::string listening = program.line();
        RawClient client(static_cast<std::uint16_t>(std::stoi(listening.substr(listening.rfind(':') + 1))));
        client.logIn();
        if (subscribes) {
            EXPECT_EQ(client.statusOf("5022=Subscribe|4=100|5=IBM|5026=30"), 0);
        }
        client.close();
        const std::string output = program.rest();
        const std::string waiting =
            "the playback starts when 1 symbol is subscribed at " + listening.substr(13);
        EXPECT_THAT(output, StartsWith(waiting));
        EXPECT_THAT(output, HasSubstr(subscribes ? "50 events played" : "nothing was played: " + waiting));
        EXPECT_EQ(program.exitCode(), subscribes ? 0 : 5);
    }
}

TEST(TivraHub, AGroupServesOnAPortForEachMember) {
    HubProgram program("-v --once --group " TIVRA_GROUP_FILE);
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int member = 0; member < 3; ++member) {
        const std::string listening = program.line();
        ASSERT_THAT(listening, HasSubstr("listening on 127.0.0.1:"));
        const auto port = static_cast<std::uint16_t>(std::stoi(listening.substr(listening.rfind(':') + 1)));
        clients.push_back(std::make_unique<RawClient>(port));
        clients.back()->logIn();
    }
    EXPECT_THAT(clients[1]->ask("5026=5|5022=ListAdministrationInfo").front(), HasSubstr("=V7.4.0|"));
    EXPECT_EQ(clients[2]->statusOf("5026=6|5022=QuerySnap|4=300|5=ZBOND"), -218);
    clients.clear();
    const std::string output = program.rest();
    EXPECT_THAT(output, HasSubstr("hub 2, connection 1: 5026=6|5022=QuerySnap|4=300|5=ZBOND"));
    EXPECT_THAT(output, HasSubstr("5 requests on 3 connections"));
    EXPECT_EQ(program.exitCode(), 0);
}

TEST(TivraHub, AGroupTellsItsConfigurationAsAFileCanHaveIt) {
    HubProgram program("--print-config --group " TIVRA_GROUP_FILE);
    const std::string text = program.rest();
    EXPECT_EQ(program.exitCode(), 0);
    EXPECT_EQ(tivra_sim::GroupConfig::fromJson(text).toJson(tivra_sim::HubConfig::Passwords::Hide) + "\n",
              text);
}
