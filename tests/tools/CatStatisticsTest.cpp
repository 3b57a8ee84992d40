#include "CatFixture.h"

#include <csignal>
#include <sys/stat.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class CatStatistics : public CatFixture {
protected:
    static std::string textOf(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// 0 while there is no such file.
    static ino_t inodeOf(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }

    /// Looks at a file until the next one has taken its place.
    static bool waitForNext(const std::string& path, ino_t before) {
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (inodeOf(path) == before || inodeOf(path) == 0) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // between two looks
        }
        return true;
    }
};

} // namespace

TEST_F(CatStatistics, JsonLinesOnStandardErrorCountWhatTheHubSent) {
    start({"--stats", "1", "--stats-format", "json", "--stats-label", "application=a \"b\"", "-q",
           "subscribe", "100:IBM"});
    ASSERT_TRUE(waitForSubscription());
    for (int i = 1; i <= 50; ++i)
        hub.pushRecord(quote("IBM", "184.25", i));
    // The updates and the answer to the request.
    ASSERT_TRUE(cat->waitForError(contains("\"delivered_messages_total\":51,"))) << cat->error();
    cat->signal(SIGINT);
    EXPECT_EQ(cat->waitForEnd(), 0);
    std::istringstream stream(cat->error());
    std::size_t lines = 0;
    for (std::string text; std::getline(stream, text);) {
        if (text.rfind("tivra-cat: ", 0) == 0)
            continue;
        const nlohmann::json line = nlohmann::json::parse(text);
        EXPECT_EQ(line.size(), 21U) << text;
        EXPECT_EQ(line["labels"], nlohmann::json({{"application", "a \"b\""}}));
        EXPECT_EQ(line["dropped_bytes_total"], 0);
        ++lines;
    }
    EXPECT_GE(lines, 1U);
}

TEST_F(CatStatistics, FileIsReplacedAsAWholeInEveryForm) {
    struct Form {
        const char* name;
        const char* begin;
        const char* end;
    };
    for (const Form& form : {Form{"text", "statistics: in ", " bytes\n"}, Form{"json", "{\"time\":\"", "}\n"},
                             Form{"openmetrics", "# TYPE tivra_in_messages counter\n", "\n# EOF\n"}}) {
        const std::string path = directory + "/" + form.name;
        start({"--stats", "1", "--stats-format", form.name, "--stats-file", path, "-q", "subscribe",
               "100:IBM"});
        ASSERT_TRUE(waitForNext(path, 0)) << cat->error();
        // Held open, so that the next file can't get the inode of this one.
        std::ifstream first(path);
        const ino_t before = inodeOf(path);
        ASSERT_TRUE(waitForNext(path, before)) << cat->error();
        EXPECT_THAT(textOf(path), AllOf(StartsWith(form.begin), EndsWith(form.end)));
        const std::string old((std::istreambuf_iterator<char>(first)), {});
        EXPECT_THAT(old, AllOf(StartsWith(form.begin), EndsWith(form.end))) << "written over";
        cat->signal(SIGINT);
        EXPECT_EQ(cat->waitForEnd(), 0);
        EXPECT_THAT(cat->error(), testing::Not(HasSubstr("statistics: "))) << "in both places";
        EXPECT_EQ(inodeOf(path + ".tmp"), 0U);
        ASSERT_TRUE(hub.waitForConnections(0, PATIENCE));
    }
}

TEST_F(CatStatistics, FileThatCannotBeWrittenIsToldOnceAndEndsWithEight) {
    const std::string path = directory + "/none/statistics";
    start({"--stats", "1", "--stats-file", path, "-d", "3.5", "-q", "subscribe", "100:IBM"});
    EXPECT_EQ(cat->waitForEnd(), 8);
    const std::string told = "cannot write the statistics to " + path + ": No such file or directory\n";
    const std::string error = cat->error();
    EXPECT_NE(error.find(told), std::string::npos) << error;
    EXPECT_EQ(error.find(told), error.rfind(told)) << error;
}
