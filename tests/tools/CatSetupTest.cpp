#include "CatFixture.h"

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class CatSetup : public CatFixture {};

struct UsageCase {
    const char* name;
    std::vector<std::string> arguments;
    const char* expected;
};

void PrintTo(const UsageCase& parameter, std::ostream* out) {
    *out << parameter.name;
}

class CatUsage : public CatFixture, public testing::WithParamInterface<UsageCase> {};

const UsageCase USAGES[] = {
    {"NoCommand", {"-H", "127.0.0.1:9", "-u", "demo"}, "subcommand"},
    {"UnknownOption", {"-H", "127.0.0.1:9", "-u", "demo", "--bogus", "snapshot", "IBM"}, "--bogus"},
    {"NoHost", {"-u", "demo", "snapshot", "IBM"}, "--host"},
    {"NoUser", {"-H", "127.0.0.1:9", "snapshot", "IBM"}, "--user"},
    {"HostWithoutPort", {"-H", "127.0.0.1", "-u", "demo", "snapshot", "IBM"}, "\"127.0.0.1\" is no host"},
    {"HostWithWrongPort", {"-H", "127.0.0.1:65536", "-u", "demo", "snapshot", "IBM"}, "is no host"},
    {"HostThatNobodyKnows", {"-H", "no.such.invalid:9", "-u", "demo", "snapshot", "IBM"}, "no.such.invalid"},
    {"BackupIsTheHubItself",
     {"-H", "127.0.0.1:9", "-B", "localhost:9", "-u", "demo", "snapshot", "IBM"},
     "backup"},
    {"NothingAskedFor", {"-H", "127.0.0.1:9", "-u", "demo", "subscribe"}, "name a symbol"},
    {"SymbolThatIsTwoPairs", {"-H", "127.0.0.1:9", "-u", "demo", "snapshot", "IBM|5=SPY"}, "is no symbol"},
    {"SymbolTooLong",
     {"-H", "127.0.0.1:9", "-u", "demo", "snapshot", "100:123456789012345678901234567890123"},
     "32"},
    {"UnknownList", {"-H", "127.0.0.1:9", "-u", "demo", "list", "everything"}, "\"everything\""},
    {"EveryWithoutTable",
     {"-H", "127.0.0.1:9", "-u", "demo", "-o", "raw", "--every", "1", "subscribe", "IBM"},
     "--every"},
    {"StatisticsFileWithoutStatistics",
     {"-H", "127.0.0.1:9", "-u", "demo", "--stats-file", "f", "subscribe", "IBM"},
     "--stats-file requires --stats"},
    {"LabelWithoutAName",
     {"-H", "127.0.0.1:9", "-u", "demo", "--stats", "1", "--stats-label", "0=a", "subscribe", "IBM"},
     "NAME=VALUE"},
    {"LabelWithoutStatistics",
     {"-H", "127.0.0.1:9", "-u", "demo", "--stats-label", "a=b", "subscribe", "IBM"},
     "--stats-label requires --stats or --stats-listen"},
    {"ListenerWithWrongPort",
     {"-H", "127.0.0.1:9", "-u", "demo", "--stats-listen", "localhost:65536", "subscribe", "IBM"},
     "\"localhost:65536\" is nothing to listen at"},
    {"EmptyFieldName", {"-H", "127.0.0.1:9", "-u", "demo", "-F", "BID//ASK", "snapshot", "IBM"}, "--fields"},
    {"MissingSymbolsFile",
     {"-H", "127.0.0.1:9", "-u", "demo", "-f", "/no/such/file", "snapshot"},
     "/no/such/file"},
    {"MissingPasswordFile",
     {"-H", "127.0.0.1:9", "-u", "demo", "--password-file", "/no/such/file", "snapshot", "IBM"},
     "/no/such/file"},
};

} // namespace

TEST_P(CatUsage, IsToldAndEndsWithTwo) {
    startBare(GetParam().arguments);
    EXPECT_EQ(cat->waitForEnd(), 2);
    EXPECT_THAT(cat->error(), AllOf(StartsWith("tivra-cat: "), HasSubstr(GetParam().expected)));
    EXPECT_EQ(cat->output(), "");
}

INSTANTIATE_TEST_SUITE_P(Mistakes, CatUsage, testing::ValuesIn(USAGES),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(CatSetup, HelpTellsExitCodesAndWhereThePasswordComesFrom) {
    startBare({"--help"});
    EXPECT_EQ(cat->waitForEnd(), 0);
    EXPECT_THAT(cat->output(), AllOf(HasSubstr("TIVRA_PASSWORD"), HasSubstr("130 interrupted"),
                                     HasSubstr("--watchlist"), HasSubstr("wildcard")));
}

TEST_F(CatSetup, PasswordOnTheCommandLineIsRefusedAndNotRepeated) {
    for (const std::vector<std::string>& form :
         {std::vector<std::string>{"--password=geheim"}, std::vector<std::string>{"--password", "geheim"}}) {
        std::vector<std::string> arguments = form;
        arguments.insert(arguments.end(), {"snapshot", "100:IBM"});
        EXPECT_EQ(run(arguments), 2);
        EXPECT_THAT(cat->error(), AllOf(HasSubstr("TIVRA_PASSWORD"), Not(HasSubstr("geheim"))));
    }
    const std::string config = writeFile("config", "password=geheim\n");
    EXPECT_EQ(run({"--config", config, "snapshot", "100:IBM"}), 2);
    EXPECT_THAT(cat->error(), Not(HasSubstr("geheim")));
}

TEST_F(CatSetup, PasswordComesFromAFileOrStandardInputBeforeTheEnvironment) {
    setup.environment["TIVRA_PASSWORD"] = "wrong";
    EXPECT_EQ(run({"--password-file", writeFile("password", "demo\n"), "snapshot", "100:IBM"}), 0);
    EXPECT_THAT(cat->error(), Not(HasSubstr("others can read")));
    setup.input = "demo\n";
    EXPECT_EQ(run({"--password-file", "-", "snapshot", "100:IBM"}), 0);
}

TEST_F(CatSetup, ReadableOrEmptyPasswordFileIsToldOf) {
    const std::string path = writeFile("password", "demo\n");
    std::filesystem::permissions(path, std::filesystem::perms(0644));
    EXPECT_EQ(run({"--password-file", path, "snapshot", "100:IBM"}), 0);
    EXPECT_THAT(cat->error(), HasSubstr("others can read"));
    EXPECT_EQ(run({"--password-file", writeFile("empty", "\n"), "snapshot", "100:IBM"}), 2);
}

TEST_F(CatSetup, WithoutAPasswordAndATerminalItSaysWhatToDo) {
    setup.environment.erase("TIVRA_PASSWORD");
    EXPECT_EQ(run({"snapshot", "100:IBM"}), 2);
    EXPECT_THAT(cat->error(), AllOf(HasSubstr("TIVRA_PASSWORD"), HasSubstr("--password-file")));
}

TEST_F(CatSetup, PromptTakesThePasswordWithoutEcho) {
    setup.environment.erase("TIVRA_PASSWORD");
    setup.isOnTerminal = true;
    start({"snapshot", "100:IBM"});
    ASSERT_TRUE(cat->waitForOutput(contains("Password of demo: ")));
    cat->type("demo\n");
    EXPECT_EQ(cat->waitForEnd(), 0) << cat->output();
    EXPECT_THAT(cat->output(), AllOf(HasSubstr("International"), Not(HasSubstr("demo: demo"))));
}

TEST_F(CatSetup, ColourIsForTerminalsAndNoColorEndsIt) {
    setup.isOnTerminal = true;
    EXPECT_EQ(run({"snapshot", "100:IBM"}), 0);
    EXPECT_THAT(cat->output(), HasSubstr("\x1b[1mIBM"));
    setup.environment["NO_COLOR"] = "1";
    EXPECT_EQ(run({"snapshot", "100:IBM"}), 0);
    EXPECT_THAT(cat->output(), Not(HasSubstr("\x1b[1m")));
    setup.isOnTerminal = false;
    EXPECT_EQ(run({"--color", "always", "snapshot", "100:IBM"}), 0);
    EXPECT_THAT(cat->output(), HasSubstr("\x1b[1mIBM"));
}

TEST_F(CatSetup, RefusedLoginTellsTheHubsCodeAndName) {
    setup.environment["TIVRA_PASSWORD"] = "wrong";
    EXPECT_EQ(run({"snapshot", "100:IBM"}), 4);
    EXPECT_THAT(cat->error(), AllOf(HasSubstr("-5 ERR.AUTH.LOGIN"), HasSubstr("login phase"),
                                    HasSubstr("\"demo\" at " + hub.hostString()), Not(HasSubstr("wrong"))));
}

TEST_F(CatSetup, UnreachableHubTellsWhatWasTriedAndHowLong) {
    const ClosedPort closed;
    const std::string host = closed.hostString();
    startBare({"-H", host, "-u", "demo", "--retries", "0", "snapshot", "100:IBM"});
    EXPECT_EQ(cat->waitForEnd(), 3);
    EXPECT_THAT(cat->error(), AllOf(HasSubstr(host), HasSubstr(" as \"demo\", tried for "),
                                    HasSubstr("in the connect phase"), HasSubstr("Log: ")));
}

TEST_F(CatSetup, HubThatFallsSilentInTheLoginIsToldApart) {
    hub.ignore("LoginUser");
    common = {"--read-timeout", "1"};
    EXPECT_EQ(run({"snapshot", "100:IBM"}), 3);
    EXPECT_THAT(cat->error(), HasSubstr("in the login conversation"));
}

TEST_F(CatSetup, BackupHubServesWhenTheFirstIsGone) {
    const ClosedPort gone;
    startBare({"-H", gone.hostString(), "-B", hub.hostString(), "-u", "demo", "--no-compression", "--retries",
               "0", "-o", "raw", "snapshot", "100:IBM"});
    EXPECT_EQ(cat->waitForEnd(), 0) << cat->error();
    EXPECT_THAT(cat->output(), HasSubstr("5=IBM"));
}

TEST_F(CatSetup, InterruptWhileConnectingEndsAtOnce) {
    hub.ignore("LoginUser");
    common = {"--read-timeout", "0"};
    start({"subscribe", "100:IBM"});
    ASSERT_TRUE(hub.waitForCommand("LoginUser", PATIENCE));
    cat->signal(SIGINT);
    EXPECT_EQ(cat->waitForEnd(), 130);
    EXPECT_THAT(cat->error(), HasSubstr("before the session stood"));
}

TEST_F(CatSetup, InterruptBeforeTheAnswerOfAQueryIsNoSuccess) {
    hub.ignore("QuerySnap");
    start({"snapshot", "100:IBM"});
    ASSERT_TRUE(hub.waitForCommand("QuerySnap", PATIENCE));
    cat->signal(SIGTERM);
    EXPECT_EQ(cat->waitForEnd(), 130);
}

TEST_F(CatSetup, CompressionIsLeftToTheLibraryUnlessTheUserDecides) {
    for (const auto& [arguments, asked] :
         {std::pair{Arguments{}, "1"}, {{"--no-compression"}, "0"}, {{"--compression"}, "1"}}) {
        hub.clearRequests();
        common = arguments;
        EXPECT_EQ(run({"snapshot", "100:IBM"}), 0) << cat->error();
        EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::COMPRESSION), asked);
    }
}

TEST_F(CatSetup, SettingsReachTheConversation) {
    ASSERT_EQ(run({"--conflation-type", "3", "--conflation-interval", "250", "--jit-threshold", "40",
                   "--conflation-indicator", "snapshot", "100:IBM"}),
              0)
        << cat->error();
    EXPECT_EQ(hub.waitForCommand("LoginUser")->value(tivra_sim::token::CONFLATE_INDICATOR), "1");
    const auto type = hub.waitForCommand("SetConflationType");
    ASSERT_TRUE(type);
    EXPECT_EQ(type->value(tivra_sim::token::CONFLATION), "3");
    EXPECT_EQ(type->value(tivra_sim::token::JIT_THRESHOLD), "40");
}

TEST_F(CatSetup, LogGoesIntoTheStateDirectoryWithoutThePassword) {
    setup.environment["TIVRA_PASSWORD"] = "geheim-nicht";
    EXPECT_EQ(run({"--debug", "snapshot", "100:IBM"}), 4);
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(directory + "/.local/state/tivra")) {
        EXPECT_THAT(entry.path().filename().string(), StartsWith("tivra-cat.log."));
        std::ifstream file(entry.path());
        log.append(std::istreambuf_iterator<char>(file), {});
    }
    EXPECT_THAT(log, AllOf(HasSubstr("sending login"), Not(HasSubstr("geheim-nicht"))));
}

TEST_F(CatSetup, ProgressAndStatisticsStandOnStandardError) {
    start({"--progress", "always", "--stats", "1", "-q", "subscribe", "100:IBM"});
    ASSERT_TRUE(cat->waitForError(contains("statistics: in "))) << cat->error();
    ASSERT_TRUE(cat->waitForError(contains(" messages, 0/s, 0 dropped")));
    cat->signal(SIGINT);
    EXPECT_EQ(cat->waitForEnd(), 0);
    EXPECT_EQ(cat->output(), "");
}
