// Lines that go to a callback, and what may be set of the file.
#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/logRoute.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

constexpr int kArea = 3;

void logFrom(const char* file, tp::loglvl_t level, const char* text) {
    tp::real_eprintf(level, file, 1, "f", "%s", text);
}

class LogRoute : public testing::Test {
protected:
    LogRoute() {
        char name[] = "/tmp/tproutXXXXXX";
        folder = ::mkdtemp(name);
        tp::setLogClassifier([](const char* file) noexcept { return *file == 'a' ? kArea : 0; });
        tp::eprintf_set_filename((folder / "log").c_str());
        tp::eprintf_init(EPF_FILE, EPF_INFO, "%s", "prog");
        tp::eprintf_ctrl(EPF_DISABLE, EPF_SUPPRESS);
    }
    ~LogRoute() override {
        tp::setLogCallback(nullptr);
        tp::setLogAreaLevel(kArea, -1);
        tp::setLogMilliseconds(false);
        tp::setLogFileLimit(0, 0);
        tp::setLogFolding(false, -1);
        tp::eprintf_cleanup();
        tp::eprintf_set_filename("eprintflog");
        tp::eprintf_init(EPF_STDERR, EPF_INFO, "%s", "");
        std::filesystem::remove_all(folder);
    }
    /// What is in the files whose names end like that.
    [[nodiscard]] std::string inFiles(const std::string& end) const {
        std::ostringstream text;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            if (const std::string name = entry.path().filename(); name.ends_with(end))
                text << std::ifstream(entry.path()).rdbuf();
        return text.str();
    }
    void collect() {
        tp::setLogCallback([this](const tp::LogRecord& record) {
            eprintf(EPF_ALWAYS_CRIT, "of the callback");
            if (lines.empty())
                hasBegun.set_value();
            lines.push_back(std::to_string(record.level) + std::to_string(record.area) + " " + record.text);
        });
    }

    std::filesystem::path folder;
    std::promise<void> hasBegun;
    std::vector<std::string> lines; ///< of the callback; read it when it has ended
};

} // namespace

TEST_F(LogRoute, ACallbackGetsWhatItsAreaAllowsThoughTheFileIsMute) {
    tp::setLogAreaLevel(kArea, EPF_DBUG);
    tp::eprintf_ctrl(EPF_ENABLE, EPF_MUTE);
    collect();
    logFrom("a", EPF_DBUG, "details\n");
    hasBegun.get_future().wait();
    logFrom("b", EPF_DBUG, "too much");
    logFrom("b", EPF_WARN, "5029=secret|");
    tp::setLogAreaLevel(kArea, EPF_CRIT);
    logFrom("a", EPF_WARN, "too much");
    tp::setLogCallback(nullptr);
    logFrom("b", EPF_WARN, "for nobody");
    EXPECT_THAT(lines, ElementsAre("33 details", "10 5029=*|"));
    EXPECT_EQ(inFiles(""), "");
}

TEST_F(LogRoute, ASlowCallbackHoldsNobodyUpAndHearsHowMuchItHasMissed) {
    std::promise<void> entered, gate;
    tp::setLogCallback([&, isFirst = true](const tp::LogRecord& record) mutable {
        if (std::exchange(isFirst, false)) {
            entered.set_value();
            gate.get_future().wait();
        }
        lines.push_back(record.text);
    });
    logFrom("b", EPF_ALWAYS_INFO, "first");
    entered.get_future().wait();
    for (int i = 0; i < 1034; ++i)
        logFrom("b", EPF_ALWAYS_INFO, "another");
    gate.set_value();
    tp::setLogCallback(nullptr);
    ASSERT_EQ(lines.size(), 1026U);
    EXPECT_EQ(lines.back(), "10 lines are lost: the callback of the log is too slow");
}

TEST_F(LogRoute, ACallbackMayEndItselfAndMayThrow) {
    std::promise<void> ended;
    tp::setLogCallback([&](const tp::LogRecord&) {
        tp::setLogCallback(nullptr);
        ended.set_value();
        throw std::runtime_error("out of the callback");
    });
    logFrom("b", EPF_INFO, "x");
    ended.get_future().wait();
    logFrom("b", EPF_INFO, "y");
    EXPECT_THAT(inFiles(""), HasSubstr("y\n"));
}

TEST_F(LogRoute, AFileThatIsFullMakesRoomAndTheOldestGoes) {
    const tp::ManualClock clock(1.7e9 + 0.25);
    tp::setLogMilliseconds(true);
    tp::setLogFileLimit(400, 2);
    for (int i = 0; i < 40; ++i)
        logFrom("b", EPF_ALWAYS_INFO, ("line " + std::to_string(i) + ".").c_str());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 4)
        << "three, and that of today";
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        EXPECT_LE(std::filesystem::file_size(entry), 400U) << entry;
    const std::string all = inFiles(".2") + inFiles(".1") + inFiles("2023");
    EXPECT_THAT(inFiles("2023"), HasSubstr("line 39.\n"));
    EXPECT_THAT(all, MatchesRegex("[A-Z][a-z]+ [0-9 ]+ [0-9:]+\\.250 (.|\n)*"));
    const std::size_t first = std::stoul(all.substr(all.find("line ") + 5));
    for (std::size_t i = first; i < 40; ++i)
        EXPECT_THAT(all, HasSubstr("line " + std::to_string(i) + "."));
}

TEST_F(LogRoute, FoldedLinesComeOnceASecondWithTheirNumber) {
    const tp::ManualClock clock;
    tp::setLogFolding(true, kArea);
    collect();
    for (int second = 0; second < 3; ++second) {
        for (int i = 0; i < 100; ++i)
            logFrom("a", EPF_WARN, "the queue is full");
        tp::Clock::advance(1.0);
    }
    tp::eprintf_report_repeats();
    tp::setLogCallback(nullptr);
    EXPECT_THAT(lines,
                ElementsAre("13 the queue is full", "13 last message repeated 99 times: the queue is full",
                            "13 last message repeated 100 times: the queue is full",
                            "13 last message repeated 100 times: the queue is full"));
}
