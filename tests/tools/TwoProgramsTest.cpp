#include "CatFixture.h"

#include <csignal>

using testing::HasSubstr;

namespace {

class TwoPrograms : public CatFixture {};

} // namespace

TEST_F(TwoPrograms, CountTheSameMessages) {
    Process::Setup server = setup;
    server.program = TIVRA_HUB_PROGRAM;
    server.environment["SECRET"] = "only-here";
    server.arguments = {
        "--user",       "trader", "--password-env", "SECRET", "--playback", TIVRA_SAMPLE_DAY, "--full-speed",
        "--start-when", "4",      "--max-events",   "5000"};
    Process process(server);
    ASSERT_TRUE(process.waitForOutput(contains("listening on ")));
    ASSERT_TRUE(process.waitForOutput(contains("\n")));
    std::string host = process.output();
    host = host.substr(host.find("127."));
    host.erase(host.find('\n'));

    setup.environment["TIVRA_PASSWORD"] = "only-here";
    startBare({"-H", host, "-u", "trader", "--no-compression", "-q", "-n", "5000", "--queue-size", "16",
               "subscribe", "-s", "100", "AIG", "BAC", "IBM", "SPY"});
    ASSERT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_THAT(cat->error(), HasSubstr("received 5000 messages"));

    process.signal(SIGTERM);
    EXPECT_EQ(process.waitForEnd(), 0);
    EXPECT_THAT(process.output(), HasSubstr("(5000 of playback, 5000 events played)"));
}
