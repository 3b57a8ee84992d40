// Options of a feed out of a URL, a file and the environment.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <feed/Error.h>
#include <feed/FeedOptions.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "feed/FeedOptionTable.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using tivra::FeedOptions;

std::string write(const std::string& name, const std::string& content) {
    // Of this process alone, since cases run side by side.
    const auto folder =
        std::filesystem::path(testing::TempDir()) / ("tivra-options-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const auto path = folder / name;
    std::ofstream(path) << content;
    std::filesystem::permissions(path,
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    return path.string();
}

/// What the options say, in one line.
std::string textOf(const FeedOptions& options) {
    std::string text;
    for (const std::string& host : options.hosts)
        text += host + ' ';
    for (const std::string& host : options.backups)
        text += "or " + host + ' ';
    text += options.user + '/' + options.password.text() + ' ' + std::to_string(options.openTimeout.count());
    for (const auto& [name, value] : options.parameters)
        text += ' ' + name + '=' + value;
    return text;
}

std::string refusalOf(const std::string& kind, const std::string& content) {
    try {
        if (kind == "url")
            FeedOptions::fromUrl(content);
        else
            FeedOptions::fromFile(write("bad." + kind, content));
    } catch (const tivra::Error& error) {
        EXPECT_EQ(error.code(), tivra::Error::Code::InvalidOption);
        return error.what();
    }
    return "nothing";
}

struct BadInput {
    std::string kind;
    std::string content;
    std::string refusal;
};

void PrintTo(const BadInput& input, std::ostream* out) {
    *out << input.kind;
}

class BadInputTest : public testing::TestWithParam<BadInput> {};

} // namespace

TEST(FeedOptionsTest, AUrlAFileAndTheEnvironmentSayTheSame) {
    const std::string expected = "h:1 h:2 or b:3 or b:4 demo/a@b 5000 COMPRESSION_BOOL=0 READ_TIMEOUT_LONG=7";
    EXPECT_EQ(
        textOf(FeedOptions::fromUrl(
            "tivra://demo:a%40b@h:1,h:2/?backup=b:3,b:4&open_timeout=5s&compression=0&READ_TIMEOUT_LONG=7")),
        expected);
    EXPECT_EQ(
        textOf(FeedOptions::fromFile(write(
            "good.toml", "# ours\nhosts = ['h:1', 'h:2']\nbackup = 'b:3,b:4'\nuser = 'demo'\n"
                         "password = 'a@b'\nopen_timeout = 5000\ncompression = 0\nread_timeout = 7\n"))),
        expected);
    EXPECT_EQ(textOf(FeedOptions::fromFile(
                  write("good.json", R"({"hosts": ["h:1", "h:2"], "backup": ["b:3", "b:4"], "user": "demo",
                        "password": "a@b", "open_timeout": "5s", "compression": "0", "READ_TIMEOUT_LONG": 7})"))),
              expected);
    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
             {"TIVRA_URL", "tivra://other@h:1,h:2/?backup=b:3,b:4&compression=0"},
             {"TIVRA_USER", "demo"},
             {"TIVRA_PASSWORD", "a@b"},
             {"TIVRA_OPEN_TIMEOUT", "5000ms"},
             {"TIVRA_READ_TIMEOUT", "7"}})
        ::setenv(name, value, 1);
    EXPECT_EQ(textOf(FeedOptions::fromEnvironment()), expected);
    FeedOptions under = FeedOptions::fromUrl("tivra://x:y@z:9/?max_user_threads=2");
    under.parameters["read_timeout"] = "1";
    ::unsetenv("TIVRA_URL");
    EXPECT_EQ(textOf(under.applyEnvironment()),
              "z:9 demo/a@b 5000 MAX_USER_THREADS_LONG=2 READ_TIMEOUT_LONG=7");
    ::setenv("TIVRA_HOST", "h:1", 1);
    try {
        FeedOptions::fromEnvironment();
        ADD_FAILURE() << "a variable of an unknown name is taken";
    } catch (const tivra::Error& error) {
        EXPECT_THAT(error.what(), HasSubstr("TIVRA_HOST: there is no option host; the nearest is hosts"));
    }
    for (const char* name :
         {"TIVRA_USER", "TIVRA_PASSWORD", "TIVRA_OPEN_TIMEOUT", "TIVRA_READ_TIMEOUT", "TIVRA_HOST"})
        ::unsetenv(name);
}

TEST_P(BadInputTest, EndsInAnErrorThatSaysWhereAndShowsNoPassword) {
    const std::string refusal = refusalOf(GetParam().kind, GetParam().content);
    EXPECT_THAT(refusal, HasSubstr(GetParam().refusal));
    EXPECT_THAT(refusal, Not(HasSubstr("s3cret")));
    EXPECT_LT(refusal.size(), 500U);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, BadInputTest,
    testing::Values(BadInput{"url", "http://h:1", "begin with tivra://"},
                    BadInput{"url", "tivra://u:s3cret/@h:1", "write / ? # @ as"},
                    BadInput{"url", "tivra://u:s3cret%4@h:1", "a % in the password has no two digits"},
                    BadInput{"url", "tivra://u:s3cret%0a@h:1", "a control character in the password"},
                    BadInput{"url", "tivra://u@h:1,h", "\"h\" names no hub"},
                    BadInput{"url", "tivra://u@h:99999", "names no hub"},
                    BadInput{"url", "tivra://u@h:1/path", "it has a path"},
                    BadInput{"url", "tivra://u@h:1/?compression", "an option without a value"},
                    BadInput{"url", "tivra://u@h:1/?compresion=0", "the nearest is compression"},
                    BadInput{"url", "tivra://u@h:1/?user=v", "user is given twice"},
                    BadInput{"url", "tivra://h:1/?read_timeout=5&READ_TIMEOUT_LONG=5",
                             "READ_TIMEOUT_LONG is given twice"},
                    BadInput{"url", "tivra://h:1/?watchlist=1", "is decided by the feed"},
                    BadInput{"url", "tivra://h:1/?open_timeout=9223372036854775807s",
                             "out of the range of open_timeout"},
                    BadInput{"url", "tivra://h:1/?" + std::string(9000, 'a'), "too long"}));

INSTANTIATE_TEST_SUITE_P(
    Files, BadInputTest,
    testing::Values(
        BadInput{"toml", "user = 'u'\n\nread_timout = 5\n", "bad.toml:3: there is no option read_timout"},
        BadInput{"toml", "user = 'u'\nread_timeout = '5s'\n", "bad.toml:2: \"5s\" is no value for"},
        BadInput{"toml", "user = ['u', 'v']\n", "user has one value"},
        BadInput{"toml", "[feed]\nuser = 'u'\n", "bad.toml:1: a table can't be meant there"},
        BadInput{"toml", "user = 'u'\n \t[!", "bad.toml:2: a table can't be meant there"},
        BadInput{"toml", "hosts = ['h:1',}", "bad.toml: there is no TOML in it"},
        BadInput{"toml", "user = {a = 1}\n", "bad.toml:1: a value is neither"},
        BadInput{"toml", "\npassword = s3cret\n", "bad.toml:2: there is no TOML"},
        BadInput{"toml", "user = 'u'\ngr\u00f6\u00dfe = 1\n", "bad.toml:2: "},
        BadInput{"toml", "user = 'u' \u00e9\n", "bad.toml:1: "},
        BadInput{"toml", "hosts = [0.\"\u00bd\"]\n", "bad.toml:1: "},
        BadInput{"toml", std::string(70'000, '#'), "the file is too large"},
        BadInput{"toml", "hosts = " + std::string(5'000, '['), "bad.toml:1: "},
        BadInput{"json", "{\n\"user\": \"u\",\n\"user\": \"v\"}", "bad.json:3: user is given twice"},
        BadInput{"json", "{\n\"password\": s3cret}", "bad.json:2: there is no JSON"},
        BadInput{"json", "{\"user\": {\"a\": 1}}", "an object is no value"},
        BadInput{"json", "{\"hosts\": [\"h:1\", 5]}", "a member of the list is no text"},
        BadInput{"json", "[1]", "a list can't be meant there"}, BadInput{"json", "5", "no object"},
        BadInput{"json", "", "there is no JSON"}, BadInput{"json", "{\"user\": null}", "null is no value"},
        BadInput{"json", "{\"user\": \"a\\u0000b\"}", "a control character in the user"},
        BadInput{"json", std::string(60'000, '['), "a list can't be meant there"},
        BadInput{"yaml", "user: u", "neither .toml nor .json"}));

TEST(FeedOptionsTest, TextsAndCommentsOfAFileMayHaveLettersOfAnyLanguage) {
    const FeedOptions options = FeedOptions::fromFile(
        write("letters.toml",
              "\xEF\xBB\xBF# gr\u00f6\u00dfer\nuser = \"J\\\"\u00f6rg~41\" # \u00e9\npassword = '\u00e9'\n"));
    EXPECT_EQ(options.user, "J\"\u00f6rg~41");
    EXPECT_EQ(options.password.text(), "\u00e9");
}

TEST(FeedOptionsTest, WhatIsNoFileIsRefusedWithItsCause) {
    EXPECT_THROW(FeedOptions::fromFile("/dev/zero.toml"), tivra::Error);
    EXPECT_THROW(FeedOptions::fromFile(testing::TempDir() + "no-such.json"), tivra::Error);
}

TEST(FeedOptionsTest, AFileWithAPasswordIsForItsOwnerAlone) {
    using std::filesystem::perms;
    for (const char* name : {"open.toml", "open.json"}) {
        const bool isToml = std::string(name) == "open.toml";
        const std::string path = write(name, isToml ? "password = 's3cret'" : R"({"password": "s3cret"})");
        for (const perms mode : {perms(0640), perms(0604), perms(0602)}) {
            std::filesystem::permissions(path, mode);
            try {
                FeedOptions::fromFile(path);
                ADD_FAILURE() << name << " is taken";
            } catch (const tivra::Error& error) {
                EXPECT_THAT(error.what(), AllOf(HasSubstr("others can read the file"), HasSubstr(name),
                                                Not(HasSubstr("s3cret"))));
            }
        }
        write(name, isToml ? "password_file = 'p'" : R"({"password_file": "p"})");
        std::filesystem::permissions(path, perms(0644));
        EXPECT_NO_THROW(FeedOptions::fromFile(path)) << "what it names is looked at by itself";
    }
}

TEST(FeedOptionsTest, TheDocumentHasTheTableAsItStands) {
    using tivra_internal::FeedOptionType;
    std::ifstream file(TIVRA_SOURCE_DIR "/docs/parameters.md");
    const std::string document = std::string(std::istreambuf_iterator<char>(file), {}) + '\n';
    constexpr const char* kValues[] = {"text", "list of host:port", "false, true", "", "milliseconds"};
    std::string table = "| Option | Value | Range | Default | Meaning |\n| --- | --- | --- | --- | --- |\n";
    for (const auto& option : tivra_internal::kFeedOptions) {
        const bool isNumber = option.type == FeedOptionType::Whole || option.type == FeedOptionType::Time;
        table += std::string("| `") + option.name + "` | " + kValues[static_cast<int>(option.type)] + " | " +
                 (isNumber ? std::to_string(option.minimum) + " to " + std::to_string(option.maximum) : "") +
                 " | " + option.defaultText + " | " + option.help + " |\n";
    }
    EXPECT_NE(document.find("\n\n" + table + '\n'), std::string::npos) << "it lacks:\n" << table;
}
