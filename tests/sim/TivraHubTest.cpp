#include "RawClient.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

using testing::HasSubstr;

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
        {"--bind nowhere", 3, "\"nowhere\""},
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
