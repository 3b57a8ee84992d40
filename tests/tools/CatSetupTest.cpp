#include "ToolFixture.h"

#include <csignal>

using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class CatSetup : public ToolFixture {};

TEST_F(CatSetup, PasswordComesFromAFileOrTheEnvironmentAndNeverFromTheCommandLine) {
    const Text refused = AllOf(HasSubstr("TIVRA_PASSWORD"), Not(HasSubstr("secret")));
    writeFile("config", "password=secret\n");
    writeFile("empty", "\n");
    writeFile("password", "demo\n");
    writeFile("open", "demo\n");
    std::filesystem::permissions(directory + "/open", std::filesystem::perms(0644));
    expect({{"tivra-cat $AT --password=secret snapshot 100:IBM", 2, "", refused},
            {"tivra-cat $AT --password secret snapshot 100:IBM", 2, "", refused},
            {"tivra-cat $AT --config config snapshot 100:IBM", 2, "", Not(HasSubstr("secret"))},
            {"TIVRA_PASSWORD=wrong tivra-cat $AT --password-file password snapshot 100:IBM", 0, _,
             Not(HasSubstr("others can read"))},
            {"TIVRA_PASSWORD=wrong tivra-cat $AT --password-file - snapshot 100:IBM < password", 0, _, _},
            {"tivra-cat $AT --password-file open snapshot 100:IBM", 2, "", HasSubstr("others can read")},
            {"tivra-cat $AT --password-file empty snapshot 100:IBM", 2, "", HasSubstr("is empty")},
            {"-u TIVRA_PASSWORD tivra-cat $AT snapshot 100:IBM", 2, "",
             AllOf(HasSubstr("TIVRA_PASSWORD"), HasSubstr("--password-file"))},
            {"TIVRA_PASSWORD=wrong tivra-cat $AT snapshot 100:IBM", 4, "",
             AllOf(HasSubstr("-5 ERR.AUTH.LOGIN"), HasSubstr("login phase"),
                   HasSubstr("\"demo\" at " + hub.hostString()), Not(HasSubstr("wrong")))}});
}

TEST_F(CatSetup, PromptTakesThePasswordWithoutEcho) {
    start("-u TIVRA_PASSWORD tivra-cat $AT snapshot 100:IBM", Process::Place::Terminal);
    ASSERT_TRUE(tool->waitForOutput(contains("Password of demo: ")));
    tool->type("demo\n");
    EXPECT_EQ(tool->waitForEnd(), 0) << tool->output();
    EXPECT_THAT(tool->output(), AllOf(HasSubstr("International"), Not(HasSubstr("demo: demo"))));
}

TEST_F(CatSetup, ColourIsForTerminalsAndNoColorEndsIt) {
    expect({{"tivra-cat $AT snapshot 100:IBM", 0, HasSubstr("\x1b[1mIBM"), ""},
            {"NO_COLOR=1 tivra-cat $AT snapshot 100:IBM", 0, Not(HasSubstr("\x1b[1m")), ""}},
           Process::Place::Terminal);
    expect({{"NO_COLOR=1 tivra-cat $AT --color always snapshot 100:IBM", 0, HasSubstr("\x1b[1mIBM"), _}});
}

TEST_F(CatSetup, HubThatCannotBeReachedIsToldFromOneThatFallsSilentAndReplacedByItsBackup) {
    expect({{"tivra-cat -H $CLOSED -u demo --retries 0 snapshot 100:IBM", 3, "",
             AllOf(HasSubstr(closedHost), HasSubstr(" as \"demo\", tried for "),
                   HasSubstr("in the connect phase"), HasSubstr("Log: "))},
            {"tivra-cat -H $CLOSED -B $HUB -u demo --no-compression --retries 0 -o raw snapshot 100:IBM", 0,
             HasSubstr("5=IBM"), _}});
    hub.ignore("LoginUser");
    expect({{"tivra-cat -H $HUB -u demo --read-timeout 1 snapshot 100:IBM", 3, "",
             HasSubstr("in the login conversation")}});
}

TEST_F(CatSetup, InterruptWhileConnectingOrBeforeTheAnswerEndsAtOnce) {
    hub.ignore("QuerySnap");
    start("tivra-cat $AT snapshot 100:IBM");
    ASSERT_TRUE(hub.waitForCommand("QuerySnap", kPatience));
    tool->signal(SIGTERM);
    EXPECT_EQ(tool->waitForEnd(), 130);
    hub.ignore("LoginUser");
    hub.clearRequests();
    start("tivra-cat -H $HUB -u demo --read-timeout 0 subscribe 100:IBM");
    ASSERT_TRUE(hub.waitForCommand("LoginUser", kPatience));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->waitForEnd(), 130);
    EXPECT_THAT(tool->error(), HasSubstr("before the session stood"));
}

TEST_F(CatSetup, SettingsReachTheHub) {
    const std::string line = "tivra-cat -H $HUB -u demo ";
    for (const auto& [option, asked] :
         {std::pair("", "1"), {"--no-compression", "0"}, {"--compression", "1"}}) {
        hub.clearRequests();
        EXPECT_EQ(run(line + option + " snapshot 100:IBM"), 0) << tool->error();
        EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::COMPRESSION), asked);
    }
    hub.clearRequests();
    ASSERT_EQ(run(line + "--conflation-type 3 --conflation-interval 250 --jit-threshold 40 "
                         "--conflation-indicator snapshot 100:IBM"),
              0)
        << tool->error();
    EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::CONFLATE_INDICATOR), "1");
    EXPECT_THAT(hub.waitForCommand("SetConflationType")->text, HasSubstr("|2035=3|3683=40"));
}

TEST_F(CatSetup, LogGoesIntoTheStateDirectoryWithoutThePassword) {
    EXPECT_EQ(run("TIVRA_PASSWORD=not-to-be-told tivra-cat $AT --debug snapshot 100:IBM"), 4);
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(directory + "/.local/state/tivra")) {
        EXPECT_THAT(entry.path().filename().string(), StartsWith("tivra-cat.log."));
        log += textOf(entry.path());
    }
    EXPECT_THAT(log, AllOf(HasSubstr("sending login"), Not(HasSubstr("not-to-be-told"))));
}

} // namespace
