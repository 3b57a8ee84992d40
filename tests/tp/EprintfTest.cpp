#include <tp/Clock.h>
#include <tp/Thread.h>
#include <tp/eprintf.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// What the calls write to standard error.
std::string stderrOf(const std::function<void()>& calls) {
    ::testing::internal::CaptureStderr();
    calls();
    return ::testing::internal::GetCapturedStderr();
}

/// Runs the calls in a child process, which must end well.
pid_t runInChild(const std::function<void()>& calls) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20);
        calls();
        std::exit(0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the child failed or hung";
    return child;
}

class Eprintf : public ::testing::Test {
protected:
    Eprintf() {
        char name[] = "/tmp/tplogXXXXXX";
        folder = ::mkdtemp(name);
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "test");
        only(EPF_NOOPTIONS);
    }
    ~Eprintf() override {
        tp::eprintf_cleanup();
        tp::eprintf_set_filename("eprintflog");
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "");
        std::filesystem::remove_all(folder);
    }
    /// Logs to a file in the test's folder and to nothing else.
    bool logToFile(const std::string& name = "log") {
        tp::eprintf_set_filename((folder / name).c_str());
        return tp::eprintf_init(EPF_FILE, EPF_INFO, "%s", "prog");
    }
    [[nodiscard]] std::filesystem::path dated(const char* name, double epochSeconds) const {
        const time_t seconds = static_cast<time_t>(epochSeconds);
        tm local{};
        ::localtime_r(&seconds, &local);
        char date[16];
        std::strftime(date, sizeof date, "%m%d%Y", &local);
        return folder / (std::string(name) + "." + date);
    }
    static void only(tp::logopt_t options) {
        tp::eprintf_ctrl(EPF_DISABLE, EPF_ALLOPTIONS);
        tp::eprintf_ctrl(EPF_ENABLE, options);
    }

    std::filesystem::path folder;
};

TEST_F(Eprintf, EachOptionAddsItsPiece) {
    const struct {
        tp::logopt_t options;
        tp::loglvl_t level;
        const char* expected;
    } cases[] = {
        {EPF_NOOPTIONS, EPF_INFO, "text\n"},
        {EPF_LEVELS, EPF_CRIT, "CRIT: text\n"},
        {EPF_LEVELS, EPF_ALWAYS_WARN, "WARN: text\n"},
        {EPF_FILEINFO, EPF_INFO, ".*/EprintfTest.cpp\\[[0-9]+\\]: text\n"},
        {EPF_FILEINFO | EPF_SHORTFILENAME, EPF_INFO, "EprintfTest.cpp\\[[0-9]+\\]: text\n"},
        {EPF_FUNCNAME, EPF_INFO, "operator\\(\\)\\(\\): text\n"},
        {EPF_TIMESTAMP, EPF_INFO, "[A-Z][a-z][a-z] [ 1-3][0-9] [0-9:]{8} text\n"},
        {EPF_COLOR | EPF_LEVELS, EPF_WARN, "\x1b\\[01;33mWARN: text\x1b\\[00m\n"},
        {EPF_MUTE, EPF_CRIT, ""},
        {tp::EPF_OPTS_DEFAULTS, EPF_ALWAYS_INFO,
         "[A-Z].. .. [0-9:]{8} EprintfTest.cpp\\[[0-9]+\\]: INFO: text\n"},
    };
    tp::eprintf_set_filename((folder / "log").c_str());
    for (const auto& c : cases) {
        only(c.options);
        EXPECT_THAT(stderrOf([&] { eprintf(c.level, "text\n\r\n"); }), MatchesRegex(c.expected));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "a file that nobody asked for";
    // The system log adds time and place itself, so no sink gets them.
    tp::eprintf_init(EPF_SYSLOG | EPF_STDERR, EPF_INFO, "%s", "test");
    EXPECT_EQ(stderrOf([] { eprintf(EPF_INFO, "text"); }), "INFO: text\n");
}

TEST_F(Eprintf, LevelsAboveTheLimitVanishAndCriticalLinesPass) {
    for (int limit = EPF_CRIT; limit <= EPF_DBUG; ++limit) {
        tp::eprintf_init(EPF_STDERR, static_cast<tp::loglvl_t>(limit), "%s", "test");
        only(EPF_NOOPTIONS);
        for (int level = -1; level <= EPF_ALWAYS_DBUG + 1; ++level) {
            const bool passes = level >= 0 && level <= EPF_ALWAYS_DBUG && level % 4 <= limit;
            const std::string logged =
                stderrOf([&] { tp::real_eprintf(static_cast<tp::loglvl_t>(level), "f", 1, "g", "x"); });
            EXPECT_EQ(logged, passes ? "x\n" : "") << "level " << level << " limit " << limit;
        }
    }
}

TEST_F(Eprintf, ErrorsEndTheLineAndErrnoIsKept) {
    errno = ENOENT;
    EXPECT_EQ(stderrOf([] { eperror(EPF_WARN, "can't open %s\n", "it"); }),
              "can't open it: (2) No such file or directory\n");
    errno = EAGAIN;
    logToFile("missing/folder");
    eprintf(EPF_WARN, "lost");
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Eprintf, ARepeatedCallSiteIsHeldToOneLineASecond) {
    const tp::ManualClock clock;
    only(EPF_SUPPRESS);
    // How many of a number of lines, spread over some call sites, get through.
    const auto linesOf = [](tp::loglvl_t level, int lines, int sites) {
        const std::string logged = stderrOf([=] {
            for (int i = 0; i < lines; ++i)
                tp::real_eprintf(level, "site", i % sites, "f", "hit");
        });
        return countOf(logged, "hit");
    };
    EXPECT_EQ(linesOf(EPF_WARN, 10, 1), 1U);
    EXPECT_EQ(linesOf(EPF_WARN, 10, 1), 0U);
    EXPECT_EQ(linesOf(EPF_ALWAYS_WARN, 10, 1), 10U);
    tp::Clock::advance(1.0);
    EXPECT_EQ(linesOf(EPF_WARN, 3 * 32, 32), 32U);
    EXPECT_EQ(linesOf(EPF_WARN, 3 * 33, 33), 99U - 32U); // rotation: what is still known is held once
}

TEST_F(Eprintf, AFloodIsCountedAfterTenLinesAndTheCountIsReported) {
    const tp::ManualClock clock;
    only(EPF_LEVELS);
    const auto flood = [](int lines, tp::loglvl_t level = EPF_WARN) {
        for (int i = 0; i < lines; ++i)
            tp::real_eprintf(level, "site", 1, "f", "line %d\n", i);
    };
    EXPECT_EQ(countOf(stderrOf([&] { flood(25); }), "WARN: line "), 10U);
    EXPECT_EQ(stderrOf([&] { flood(1, EPF_CRIT); }), "CRIT: line 0\n") << "a level has its own ten";
    EXPECT_EQ(stderrOf(tp::eprintf_report_repeats), "") << "not yet";
    tp::Clock::advance(10.0);
    EXPECT_EQ(stderrOf(tp::eprintf_report_repeats), "WARN: line 9 (repeated 15 times)\n");
    EXPECT_EQ(stderrOf([&] { flood(11); }), "") << "the flood goes on";
    tp::Clock::advance(10.0);
    EXPECT_EQ(stderrOf([] { eprintf(EPF_INFO, "another"); }),
              "WARN: line 9 (repeated 11 times)\nINFO: another\n");
    EXPECT_EQ(stderrOf([&] { flood(1); }), "");
    tp::Clock::advance(10.0);
    EXPECT_EQ(stderrOf([&] { flood(1); }), "WARN: line 9 (repeated 1 times)\nWARN: line 0\n") << "calm";
    EXPECT_EQ(countOf(stderrOf([&] { flood(30); }), "line"), 9U);
    EXPECT_EQ(stderrOf(tp::eprintf_cleanup), "WARN: line 8 (repeated 21 times)\n");
}

TEST_F(Eprintf, NoTextLeavesItsLineAndPasswordsAreMasked) {
    const struct {
        const char* text;
        const char* logged;
    } cases[] = {
        {"a\nINFO: b\r\n\x1b[31m\xc3\xa9\x7f\t.\n", "a\\x0aINFO: b\\x0d\\x0a\\x1b[31m\\xc3\\xa9\\x7f\\x09."},
        {"5026=1|5029=pa55 word|5128=x|5029=p", "5026=1|5029=*|5128=x|5029=*"},
        {"05029 = \xc3\xa9\x03next", "05029 =*\\x03next"},
        {"45028=5029|45029=pa55|5=IBM", "45028=5029|45029=*|5=IBM"},
        {"15029=a 50290=b 127.0.0.1:5029 5029=|c", "15029=a 50290=b 127.0.0.1:5029 5029=|c"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(stderrOf([&] { eprintf(EPF_ALWAYS_WARN, "%s", c.text); }), std::string(c.logged) + "\n");
}

TEST_F(Eprintf, TheFileNeverBecomesAStandardStream) {
    runInChild([this] {
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
        logToFile();
        eprintf(EPF_WARN, "logged");
        ::_exit(::write(STDOUT_FILENO, "out", 3) < 0 && ::write(STDERR_FILENO, "err", 3) < 0 ? 0 : 1);
    });
    EXPECT_THAT(contentsOf(dated("log", tp::Clock::now())), testing::EndsWith("logged\n"));
}

TEST_F(Eprintf, ALineThatDoesNotFitIsGivenUpAndTheNextIsWhole) {
    only(EPF_LEVELS | EPF_COLOR);
    std::string text(32720, 'x'), logged;
    for (; text.size() < 33'000; text += 'x') {
        logged = stderrOf([&] { eprintf(EPF_ALWAYS_WARN, "%s", text.c_str()); });
        if (countOf(logged, text) == 0)
            break;
        ASSERT_EQ(logged.back(), '\n');
    }
    EXPECT_EQ(logged, "eprintf library error #7 in real_eprintf()\n");
    EXPECT_GT(text.size(), 32720U);
    errno = EIO;
    only(EPF_NOOPTIONS);
    EXPECT_EQ(stderrOf([] { eperror(EPF_WARN, "%s", std::string(32760, 'x').c_str()); }),
              "eprintf library error #8 in real_eperror()\n");
    EXPECT_EQ(stderrOf([] { eprintf(EPF_WARN, "next"); }), "next\n");
}

TEST_F(Eprintf, TheFileCarriesTheDateAndRollsAtMidnight) {
    const double noon = 1381147200.0;
    const tp::ManualClock clock(noon);
    ASSERT_TRUE(logToFile());
    only(EPF_TIMESTAMP);
    eprintf(EPF_WARN, "first day");
    tp::Clock::advance(86400.0);
    eprintf(EPF_WARN, "second day");
    const std::string prefix = "[A-Z].. .. [0-9:]{8} prog\\[" + std::to_string(::getpid()) + "\\]: ";
    EXPECT_THAT(contentsOf(dated("log", noon)), MatchesRegex(prefix + "first day\n"));
    EXPECT_THAT(contentsOf(dated("log", noon + 86400.0)), MatchesRegex(prefix + "second day\n"));
    only(EPF_NOOPTIONS);
    tp::Clock::advance(86400.0); // without the time in the lines nothing rolls
    eprintf(EPF_WARN, "third day");
    EXPECT_THAT(contentsOf(dated("log", noon + 86400.0)), HasSubstr("third day"));
}

TEST_F(Eprintf, StartingTwiceClosesTheFirstFileAndCleanUpTheLast) {
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    ASSERT_TRUE(logToFile("one"));
    ASSERT_TRUE(logToFile("two"));
    EXPECT_EQ(openDescriptors(), before + 1);
    tp::eprintf_cleanup();
    EXPECT_EQ(openDescriptors(), before);
    eprintf(EPF_WARN, "after clean-up"); // lost, and harmless
    tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "test");
    only(EPF_NOOPTIONS);
    EXPECT_EQ(stderrOf([] { eprintf(EPF_WARN, "back"); }), "back\n");
}

TEST_F(Eprintf, AFileThatCanNotBeOpenedIsReportedOncePerNameOnStandardError) {
    const tp::ManualClock clock;
    ::testing::internal::CaptureStdout();
    const std::string logged = stderrOf([&] {
        EXPECT_FALSE(logToFile("missing/log"));
        EXPECT_FALSE(logToFile("missing/log"));
        eprintf(EPF_ALWAYS_WARN, "lost");
        tp::Clock::advance(86400.0);
        eprintf(EPF_ALWAYS_WARN, "lost");
    });
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(logged, StartsWith("eprintf: Unable to open " + dated("missing/log", 1.7e9).string() +
                                   " - errno = 2: No such file or directory\n"));
    EXPECT_EQ(countOf(logged, "Unable to open"), 2U);
    EXPECT_EQ(countOf(logged, "lost"), 0U);
}

TEST_F(Eprintf, NamesAreCutAtTheirLimit) {
    EXPECT_TRUE(tp::eprintf_set_filename(std::string(63, 'a').c_str()));
    EXPECT_FALSE(tp::eprintf_set_filename(std::string(64, 'a').c_str()));
    ASSERT_TRUE(logToFile());
    tp::eprintf_init(EPF_FILE, EPF_INFO, "%s", std::string(100, 'p').c_str());
    only(EPF_NOOPTIONS);
    eprintf(EPF_WARN, "x");
    EXPECT_THAT(contentsOf(dated("log", tp::Clock::now())), StartsWith(std::string(63, 'p') + "["));
}

TEST_F(Eprintf, LinesOfManyThreadsDoNotMix) {
    ASSERT_TRUE(logToFile());
    only(EPF_NOOPTIONS);
    {
        std::vector<tp::Thread> threads;
        for (const char letter : {'a', 'b', 'c', 'd'})
            threads.emplace_back("log", [text = std::string(50, letter)] {
                for (int i = 0; i < 200; ++i)
                    eprintf(EPF_ALWAYS_WARN, "%s", text.c_str());
            });
    }
    std::istringstream lines(contentsOf(dated("log", tp::Clock::now())));
    std::size_t counted = 0;
    for (std::string line; std::getline(lines, line); ++counted)
        ASSERT_EQ(line.substr(line.find("]: ") + 3), std::string(50, line.back()));
    EXPECT_EQ(counted, 800U);
}

TEST_F(Eprintf, AChildForkedWhileAnotherThreadLogsCanLog) {
    ASSERT_TRUE(logToFile());
    std::atomic<bool> done{false};
    tp::Thread busy("log", [&] {
        while (!done)
            eprintf(EPF_WARN, "busy");
    });
    for (int i = 0; i < 50 && !HasFailure(); ++i)
        runInChild([] {
            eprintf(EPF_WARN, "child");
            ::_exit(0);
        });
    done = true;
}

TEST_F(Eprintf, AnOverwrittenMutexIsMadeAnew) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer reports a mutex that was overwritten, as it should";
#endif
    char dump[16328];
    tp::eprintf_dump(dump, sizeof dump);
    const std::string text = dump;
    const std::size_t name = text.find(": static pthread_mutex_t eprintf_mutex");
    ASSERT_NE(name, std::string::npos);
    void* mutex = nullptr;
    ASSERT_EQ(std::sscanf(dump + text.rfind('\n', name) + 1, "%p", &mutex), 1);
    std::memset(mutex, 'x', sizeof(pthread_mutex_t));
    EXPECT_THAT(stderrOf([] { eprintf(EPF_WARN, "still here"); }),
                MatchesRegex("real_eprintf_lock\\(\\) = 22 Invalid argument, eprintf_mutex corrupted, "
                             "contained \"xxx(.|\n)*reinitialized\nstill here\n"));
}

TEST_F(Eprintf, TheDumpStaysWithinItsBufferAndNamesTheState) {
    std::vector<char> dump(16328);
    const std::size_t whole = tp::eprintf_dump(dump.data(), dump.size());
    EXPECT_EQ(whole, std::strlen(dump.data()));
    EXPECT_LT(whole + 1, dump.size());
    for (const char* part : {"static int eprintf_fd sizeof=4 -1\n", "eprintf_loglvl",
                             "eprintf_prefix sizeof=64 \"test\"", "[31] filePtr=", "compiler: "})
        EXPECT_THAT(dump.data(), HasSubstr(part));
    for (std::size_t size : {1U, 2U, 100U, 1000U}) {
        std::vector<char> small(size);
        EXPECT_EQ(tp::eprintf_dump(small.data(), size), size - 1);
        EXPECT_EQ(small.back(), '\0');
    }
    EXPECT_EQ(tp::eprintf_dump(nullptr, 0), 0U);
}

TEST_F(Eprintf, APipeThatNobodyReadsEndsNothing) {
    runInChild([] {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0)
            ::_exit(1);
        ::close(ends[0]);
        ::dup2(ends[1], STDERR_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "child");
        eprintf(EPF_CRIT, "%s", "a line");
        sigset_t pending;
        sigpending(&pending);
        ::_exit(sigismember(&pending, SIGPIPE));
    });
}

TEST_F(Eprintf, TheEnvironmentAsksForDumps) {
    ::setenv("EPRINTF_CLEANUP_DUMP", "1", 1);
    EXPECT_THAT(stderrOf([] { tp::eprintf_cleanup(); }),
                StartsWith("eprintf_cleanup() eprintf_dump(...)\neprintf_dump("));
    ::unsetenv("EPRINTF_CLEANUP_DUMP");

    const pid_t child = runInChild([] {
        ::setenv("EPRINTF_ATEXIT", "tptest", 1);
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "child");
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "child");
    });
    const std::filesystem::path path = "/tmp/eprintf_atexit.tptest." + std::to_string(child) + ".txt";
    EXPECT_THAT(contentsOf(path), HasSubstr("eprintf_prefix sizeof=64 \"child\""));
    std::filesystem::remove(path);
}

} // namespace
