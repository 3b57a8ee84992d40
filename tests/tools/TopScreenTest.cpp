// tivra-top on a real terminal, which tmux is.
#include "ToolFixture.h"

#include <csignal>
#include <cstdio>

using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class TopScreen : public ToolFixture {
protected:
    void SetUp() override {
        if (access("/usr/bin/tmux", X_OK) != 0)
            GTEST_SKIP() << "tmux isn't installed";
    }

    void TearDown() override { tmux("kill-server"); }

    std::string tmux(const std::string& words) const {
        const std::string line =
            "env -u TMUX TMUX_TMPDIR=" + directory + " LC_ALL=C.UTF-8 tmux -f /dev/null " + words + " 2>&1";
        FILE* const pipe = popen(line.c_str(), "r");
        std::string text;
        char piece[4096];
        for (std::size_t got = 0; (got = fread(piece, 1, sizeof piece, pipe)) > 0;)
            text.append(piece, got);
        pclose(pipe);
        return text;
    }

    /// Starts it in a window; the window stays at the end, and shows the exit code.
    void open(int width, int height, const std::string& environment = "") {
        tmux("new-session -d -x " + std::to_string(width) + " -y " + std::to_string(height) +
             " \"trap : QUIT; env " + environment + " tivra-top -H " + hub.hostString() +
             " -u demo --no-compression --read-timeout 60 -s 100 IBM AIG; echo code $?; cat\"");
    }

    [[nodiscard]] std::string screen(const char* with = "") const {
        return tmux(std::string("capture-pane -p ") + with);
    }

    [[nodiscard]] bool shows(const std::string& word, const char* with = "") const {
        return comesTrue([&] { return screen(with).find(word) != std::string::npos; });
    }

    /// Whether a bid that rises at each look is shown in this style, which it keeps for two seconds only.
    [[nodiscard]] bool showsRiseAs(const std::string& style) {
        int bid = 70000;
        return comesTrue([&] {
            hub.pushRecord(quote("IBM", std::to_string(++bid).c_str(), 300));
            return screen("-e").find(style + "70") != std::string::npos;
        });
    }

    /// The line with a word.
    [[nodiscard]] std::string lineWith(const std::string& word) const {
        std::istringstream lines(screen());
        for (std::string line; std::getline(lines, line);)
            if (line.find(word) != std::string::npos)
                return line;
        return {};
    }
};

TEST_F(TopScreen, ShowsValuesAndGoesWithTheWindow) {
    open(80, 24);
    ASSERT_TRUE(shows("100:IBM")) << screen();
    ASSERT_TRUE(hub.waitForSubscriptions(2, kPatience));
    hub.pushRecord(quote("IBM", "184.25", 300));
    ASSERT_TRUE(shows("184.25")) << screen();
    EXPECT_THAT(screen(),
                AllOf(StartsWith("established"), HasSubstr("ready"), HasSubstr("LOG"), HasSubstr("q quit")));
    ASSERT_TRUE(showsRiseAs("\x1b[32m")) << "green: " << screen("-e");

    tmux("resize-window -x 40 -y 10");
    // Before it is drawn anew the state is beyond the edge.
    ASSERT_TRUE(comesTrue([&] { return lineWith("100:IBM").find("live") != std::string::npos; })) << screen();
    ASSERT_TRUE(shows("q quit  Tab panel  / filter  left,right")) << screen();
    tmux("resize-window -x 80 -y 1");
    ASSERT_TRUE(comesTrue([&] { return screen().rfind("established", 0) == 0; })) << screen();
    tmux("resize-window -x 80 -y 24");
    ASSERT_TRUE(shows("LOG")) << screen();

    tmux("send-keys / A I G");
    ASSERT_TRUE(shows("filter: AIG_")) << screen();
    EXPECT_EQ(lineWith("100:IBM"), "") << screen();
    tmux("send-keys Enter q");
    ASSERT_TRUE(shows("code 0")) << screen();
}

TEST_F(TopScreen, LossTurnsValuesStaleAndGrey) {
    open(80, 24, "TERM=screen-256color");
    ASSERT_TRUE(hub.waitForSubscriptions(2, kPatience));
    hub.pushRecord(quote("IBM", "184.25", 300));
    ASSERT_TRUE(shows("184.25")) << screen();
    hub.stop();
    ASSERT_TRUE(comesTrue([&] { return lineWith("100:IBM").find("stale") != std::string::npos; }))
        << screen();
    EXPECT_TRUE(shows("lost")) << screen();
    EXPECT_TRUE(shows("\x1b[90m", "-e")) << "grey: " << screen("-e");
    EXPECT_THAT(lineWith("100:IBM"), HasSubstr("184.25"));
    tmux("send-keys 'C-\\'");
    ASSERT_TRUE(shows("code 0")) << "the terminal is given back: " << screen();
}

TEST_F(TopScreen, WithoutColourRisingIsBold) {
    open(80, 24, "NO_COLOR=1");
    ASSERT_TRUE(hub.waitForSubscriptions(2, kPatience));
    hub.pushRecord(quote("IBM", "184.25", 300));
    ASSERT_TRUE(shows("184.25"));
    ASSERT_TRUE(showsRiseAs("\x1b[1m")) << screen("-e");
    EXPECT_EQ(screen("-e").find("\x1b[32m"), std::string::npos);
}

class Top : public ToolFixture {};

TEST_F(Top, OnceAndWhatCannotBeShown) {
    using testing::_;
    expect(
        {{"tivra-top $AT --once -s 100 IBM", 0,
          AllOf(StartsWith("established "), HasSubstr("\n100:IBM"), HasSubstr(" live\n")), ""},
         {"tivra-top $AT --once -s 100 'I*' -F BID", 0, AllOf(HasSubstr(" BID "), HasSubstr("\n100:IBM")),
          ""},
         {"tivra-top $AT --once -F NOPE -s 100 IBM", 2, "", HasSubstr("NOPE")},
         {"tivra-top $AT --once -s 100 IBM >/dev/full", 8, "",
          HasSubstr("standard output cannot be written")},
         {"tivra-top $AT --once IBM", 2, "", HasSubstr("of which source is IBM?")},
         {"tivra-top $AT --onec", 2, "", HasSubstr("--once")},
         {"tivra-top -H $CLOSED -u demo -t 1 --once", 3, "", HasSubstr(closedHost)},
         {"TIVRA_PASSWORD=wrong tivra-top $AT --once", 4, "", HasSubstr("refused the login")},
         {"tivra-top -H $HUB -u demo --serve $HUB", 8, "", HasSubstr("cannot serve the page at 127.0.0.1:")},
         {"tivra-top -H $HUB -u demo --serve no:port", 2, "", HasSubstr("nothing to listen at")},
         {"tivra-top $AT", 8, "", HasSubstr("no terminal; --once prints")}});
    expect({{"TERM=dumb tivra-top $AT", 8, HasSubstr("TERM=dumb can't move its cursor"), ""},
            {"TERM=nonsense tivra-top $AT", 8, HasSubstr("TERM=nonsense isn't known"), ""}},
           Process::Place::Terminal);
}

TEST_F(Top, InterruptEndsThePromptForThePassword) {
    start("-u TIVRA_PASSWORD sh -c \"trap : INT; tivra-top $AT; echo code \\$?; stty -a\"",
          Process::Place::Terminal);
    ASSERT_TRUE(tool->waitForOutput(contains("Password of demo:")));
    tool->type("\x03");
    EXPECT_EQ(tool->waitForEnd(), 0);
    EXPECT_THAT(tool->output(), AllOf(HasSubstr("code 130"), HasSubstr(" echo ")));
}

TEST_F(Top, WatchesAnApplicationByItsStatistics) {
    start("tivra-cat $AT --stats-listen 0 -q subscribe 100:IBM");
    ASSERT_TRUE(tool->waitForError(contains("/metrics\n")));
    const std::string told = tool->error();
    const std::string url =
        told.substr(told.find("http://"), told.find("/metrics") + 8 - told.find("http://"));
    const std::unique_ptr<Process> application = std::move(tool);
    expect(
        {{"tivra-top --once --watch http://me:secret@" + url.substr(7), 0,
          AllOf(StartsWith("established "), HasSubstr("\nin_messages_total "), HasSubstr(" live\n"),
                HasSubstr(url.substr(7)), Not(HasSubstr("secret"))),
          ""},
         {"tivra-top --once -t 1 --watch http://$CLOSED/metrics", 6,
          AllOf(StartsWith("connecting "), HasSubstr("the endpoint: ")), HasSubstr("not all was answered")},
         {"tivra-top --once -s 100 --watch " + url, 2, "", HasSubstr("no host, source or symbol")}});
}

/// The programs' own certificate, and a token: what the endpoint needs, and what the program that asks has to
/// have.
TEST_F(Top, WatchesOverHttpsWithATokenAlone) {
    if (!TIVRA_CAT_HAS_SERVER || access("/usr/bin/openssl", X_OK) != 0)
        GTEST_SKIP() << "there is no server, or no openssl to make certificates with";
    ASSERT_EQ(run("sh -c 'umask 077; echo s3cret >token; openssl req -x509 -newkey ec -pkeyopt "
                  "ec_paramgen_curve:P-256 "
                  "-nodes -subj /CN=here -addext subjectAltName=IP:127.0.0.1 -keyout key.pem -out cert.pem "
                  "2>/dev/null; "
                  "echo other >others; echo >empty; cp token open; chmod 644 open'"),
              0);
    const std::string serve = "tivra-cat $AT --stats-listen 0 --stats-cert cert.pem --stats-key key.pem ";
    expect({{serve + "--stats-token-file open -q subscribe 100:IBM", 2, "",
             HasSubstr("others can read the token file")},
            {serve + "--stats-token-file empty -q subscribe 100:IBM", 2, "",
             HasSubstr("the token in the first line of \"empty\" is empty")},
            {"tivra-cat $AT --stats-listen 0 --stats-cert token -q subscribe 100:IBM", 2, "",
             HasSubstr("over HTTPS with the certificate \"token\"")}});
    start(serve + "--stats-token-file token -q subscribe 100:IBM");
    ASSERT_TRUE(tool->waitForError(contains("/metrics\n"))) << tool->error();
    const std::string told = tool->error();
    const std::string url =
        told.substr(told.find("https://"), told.find("/metrics") + 8 - told.find("https://"));
    const std::unique_ptr<Process> application = std::move(tool);
    const std::string watch = "tivra-top --once -t 3 --watch " + url + " ";
    expect({{watch + "--watch-ca cert.pem --watch-token-file token", 0,
             AllOf(StartsWith("established "), HasSubstr("\nin_messages_total ")), ""},
            {watch + "--watch-ca cert.pem", 6, HasSubstr("HTTP status 401"), _},
            {watch + "--watch-ca cert.pem --watch-token-file others", 6, HasSubstr("HTTP status 401"), _},
            {watch + "--watch-token-file token", 6, HasSubstr("certificate"), _},
            {"openssl s_client -tls1_1 -cipher DEFAULT@SECLEVEL=0 -connect " +
                 url.substr(8, url.find("/metrics") - 8),
             1, HasSubstr("Cipher is (NONE)"), _},
            {"tivra-top --once -s 100 --watch-token-file token -H 127.0.0.1:1 -u demo", 2, "",
             HasSubstr("go with --watch")}});
    application->signal(SIGINT);
    EXPECT_EQ(application->waitForEnd(), 0);
}

} // namespace
