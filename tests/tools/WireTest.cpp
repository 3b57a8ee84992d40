// tivra-wire as a process, on files and pipes.
#include "Process.h"

#include "../../bench/TapeFrames.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <zlib.h>

using testing::EndsWith;
using testing::HasSubstr;
using namespace std::string_literals;

namespace {

std::string frameOf(std::string_view body) {
    std::string frame("\x04 ");
    for (const int shift : {24, 16, 8, 0})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

std::string deflated(const std::string& bytes) {
    std::string out(compressBound(bytes.size()), '\0');
    uLongf size = out.size();
    compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
             bytes.size());
    return out.substr(0, size);
}

std::string mapLine(int number, const std::string& name, const std::string& storage) {
    return "cmd=AddToken|name=" + name + "|token=" + std::to_string(number) + "|storage=" + storage + "\n";
}

class Wire : public testing::Test {
protected:
    Wire() {
        char name[] = "/tmp/tivra-wire-test.XXXXXX";
        directory = mkdtemp(name);
        std::string lines;
        static constexpr const char* STORAGES[] = {"int", "double", "string"};
        for (std::size_t i = 0; i < tivra_bench::TAPE_TOKEN_COUNT; ++i)
            lines += mapLine(tivra_bench::TAPE_TOKENS[i].number, tivra_bench::TAPE_TOKENS[i].name,
                             STORAGES[tivra_bench::TAPE_TOKENS[i].storage]);
        // The last three have names that a reader of lines would not find them by.
        lines += mapLine(6, "REFRESH", "int") + mapLine(10, "ENUM.DISPLAY.PRECISION", "int") +
                 mapLine(80, "5", "int") + mapLine(81, "A=B", "int") + mapLine(82, "", "string");
        map = writeFile("map.txt", lines + "cmd=AddShortName|name=BID|shortname=b\n");
    }
    ~Wire() override { std::filesystem::remove_all(directory); }

    std::string writeFile(const std::string& name, const std::string& bytes) const {
        std::ofstream file(directory + "/" + name, std::ios::binary);
        file << bytes;
        return directory + "/" + name;
    }

    int runBare(const std::vector<std::string>& arguments, const std::string& input = "") {
        Process::Setup setup;
        setup.program = TIVRA_WIRE_PROGRAM;
        setup.arguments = arguments;
        setup.input = input;
        for (const char* inherited : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"})
            if (const char* value = getenv(inherited))
                setup.environment[inherited] = value;
        Process process(setup);
        const int code = process.waitForEnd();
        output = process.output();
        error = process.error();
        return code;
    }

    int run(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), {"--map", map});
        return runBare(arguments, input);
    }

    std::string convert(const std::string& input, std::vector<std::string> options) {
        options.insert(options.begin(), "convert");
        // A pipe is filled before its other end is read.
        const bool isLong = input.size() > 60000;
        if (isLong)
            options.push_back(writeFile("input", input));
        EXPECT_EQ(run(options, isLong ? "" : input), 0) << error;
        return output;
    }

    std::string directory;
    std::string map;
    std::string output;
    std::string error;
};

TEST_F(Wire, ConvertsFieldsOfAllKindsAndBack) {
    const std::string known = frameOf("5026=18|4=558|5=IBM|3=7|9=Q|6=1|10=131|1020=99.5|1021=|1025=|4=9");
    const std::string frames = known + frameOf("777=abc|1004=1381118400.125|5=A B\xe9");
    const std::string lines =
        "QUERY.TAG=18|ENUM.SRC.ID=558|SYMBOL.TICKER=IBM|PERMISSION=7|PART.CODE=Q|REFRESH=1|"
        "ENUM.DISPLAY.PRECISION=131|BID=99.5|TOKEN.DEL=1021|QUOTE.CONDITION=|ENUM.SRC.ID=9\n"
        "777=abc|ACTIVITY.DATETIME=1381118400.125|SYMBOL.TICKER=A B\xe9\n";
    EXPECT_EQ(convert(frames, {}), lines);
    EXPECT_EQ(convert(deflated(frames), {"--to", "vkvn"}), lines);
    EXPECT_EQ(convert(known, {"--blanks"}),
              "QUERY.TAG=18 ENUM.SRC.ID=558 SYMBOL.TICKER=IBM PERMISSION=7 PART.CODE=Q REFRESH=1 "
              "ENUM.DISPLAY.PRECISION=131 b=99.5 TOKEN.DEL=1021 QUOTE.CONDITION= ENUM.SRC.ID=9\n");
    // A number that the dictionary lacks has no form of its own in frames.
    EXPECT_EQ(convert(lines, {"--to", "kvn"}),
              known + frameOf("45028=777|45029=abc|1004=1381118400.125|5=A B\xe9"));
    // A last line without its end, and numbers in place of names, of which the first looks like a zlib
    // header.
    EXPECT_EQ(convert("80=5|5=IBM|BID=1", {"--to", "kvn"}), frameOf("80=5|5=IBM|1020=1"));
    // Whatever is read from frames is read again from their lines, also the fields behind UNKNOWNTOKEN.
    for (const auto& [body, line] :
         {std::pair("80=1|81=2|82=x|5=IBM", "80=1|81=2|82=x|SYMBOL.TICKER=IBM\n"),
          std::pair("45028=999|1020=1|45028=999", "UNKNOWNTOKEN=999|BID=1|UNKNOWNTOKEN=999\n"),
          std::pair("45028=BID|45029=5|45028=1020|45029=6",
                    "UNKNOWNTOKEN=BID|UNKNOWNSVALUE=5|UNKNOWNTOKEN=1020|UNKNOWNSVALUE=6\n")}) {
        EXPECT_EQ(convert(frameOf(body), {}), line);
        EXPECT_EQ(convert(line, {"--to", "kvn"}), frameOf(body));
    }
}

TEST_F(Wire, TheDaySurvivesEveryWayRound) {
    const std::string frames = tivra_bench::asFrames(tivra_bench::readTape(TIVRA_SAMPLE_DAY));
    const std::string day = writeFile("day.kvn", frames);
    for (const char* const level : {"0", "9"}) {
        const std::string packed = directory + "/day.zkvn";
        ASSERT_EQ(run({"convert", "--to", "zkvn", "--level", level, "-o", packed, day}), 0) << error;
        ASSERT_EQ(run({"convert", "--to", "kvn", packed}), 0) << error;
        EXPECT_TRUE(output == frames) << "level " << level;
    }
    const std::string lines = convert(frames, {"--to", "vkvn"});
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 40000);
    const std::string written = convert(lines, {"--to", "kvn"});
    EXPECT_TRUE(convert(written, {"--to", "vkvn"}) == lines);
    ASSERT_EQ(run({"check", day, day}), 0);
    const std::string line =
        day + ": kvn, 40000 messages in " + std::to_string(frames.size()) + " bytes, 40000 accepted\n";
    EXPECT_EQ(output, line + line);
}

TEST_F(Wire, DumpsFieldsWithTheirPlaces) {
    ASSERT_EQ(run({"dump"}, frameOf("5=IBM") + frameOf("777=a\x01|1020=")), 0) << error;
    EXPECT_EQ(output, "frame 1 at byte 0, 12 bytes\n"
                      "         6       5  string   SYMBOL.TICKER                     IBM\n"
                      "frame 2 at byte 12, 19 bytes\n"
                      "        18     777  unknown  -                                 a\\x01\n"
                      "        25    1020  double   BID                               (deleted)\n");
    ASSERT_EQ(run({"dump"}, "SYMBOL.TICKER=IBM\n4=9\n"), 0) << error;
    EXPECT_EQ(output, "line 1 at byte 0, 18 bytes\n"
                      "         0       5  string   SYMBOL.TICKER                     IBM\n"
                      "line 2 at byte 18, 4 bytes\n"
                      "        18       4  int      ENUM.SRC.ID                       9\n");
}

TEST_F(Wire, ShowsWhatHasComeOfAPipeThatStaysOpen) {
    const std::string pipe = directory + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Process::Setup setup;
    setup.program = TIVRA_WIRE_PROGRAM;
    setup.arguments = {"--map", map, "dump", pipe};
    Process process(setup);
    std::ofstream writer(pipe, std::ios::binary);
    writer << frameOf("5=IBM") << "\x04 " << std::flush;
    EXPECT_TRUE(process.waitForOutput([](const std::string& text) {
        return text.find("SYMBOL.TICKER                     IBM\n") != std::string::npos;
    }));
    writer.close();
    EXPECT_EQ(process.waitForEnd(), 3);
}

TEST_F(Wire, FiltersByTokenSourceAndSymbol) {
    const std::string lines = "4=1|5=A|BID=1\n4=2|5=A|ASK=1\n4=1|5=B|BID=\n4=3|BID=2\n";
    const struct {
        std::vector<std::string> options;
        const char* expected;
    } rows[] = {
        {{"--source", "1", "-s", "2", "--symbol", "A"}, "4=1|5=A|BID=1\n4=2|5=A|ASK=1\n"},
        {{"--token", "BID"}, "4=1|5=A|BID=1\n4=1|5=B|BID=\n4=3|BID=2\n"},
        {{"--token", "1022"}, "4=2|5=A|ASK=1\n"},
        {{"--symbol", "C"}, ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(convert(lines, row.options), row.expected);
}

TEST_F(Wire, ReportsTheFirstFaultWithItsPlace) {
    const std::string good = frameOf("5=IBM"); // 12 bytes
    const std::string end = "expected \"|\" or the end of the message behind a value, found ";
    const struct {
        const char* what;
        std::string input;
        std::string expected; ///< behind the name of the input
    } rows[] = {
        {"start", good + "\x05 \0\0\0\1xx"s,
         "byte 12 (message 2): expected 0x04, the start of a frame, found 0x05"},
        {"second byte", good + "\x04!\0\0\0\1xx"s,
         "byte 13 (message 2): expected 0x20, the second byte of a frame, found 0x21 '!'"},
        {"length", good + "\x04 \xff\xff\xff\xff"s,
         "byte 14 (message 2): expected a body of at most 16777209 bytes, found a length of 4294967295"},
        {"end", good + "\x04 \0\0\0\x03"s + "5=IB",
         "byte 21 (message 2): expected 0x03, the end of the frame, found 0x42 'B'"},
        {"empty body", good + frameOf(""),
         "byte 18 (message 2): expected a token's number and \"=\", found 0x03"},
        {"name in a frame", frameOf("BID=1"),
         "byte 6 (message 1): expected a token's number and \"=\", found 0x42 'B'"},
        {"value", good + frameOf("5=X|1021=1.5"), "byte 28 (message 2): " + end + "0x2e '.'"},
        {"end inside", frameOf("5=I\x03M"),
         "byte 9 (message 1): expected the end of the frame behind its end byte, found 0x03"},
        {"line", "BID=1\nBID=x\n", "byte 10 (message 2): " + end + "0x78 'x'"},
        {"line without an end", "BID=1\nBID=2|",
         "byte 12 (message 2): expected a token's name or number and \"=\", found the end of the input"},
        {"empty line", "BID=1\n\nBID=2\n",
         "byte 6 (message 2): expected a token's name or number and \"=\", found 0x0a"},
        {"compressed", deflated(good + frameOf("1021=x")), "byte 23 (message 2): " + end + "0x78 'x'"},
        {"behind the stream", deflated(good) + "x",
         "byte 12 (message 2): expected the end of the input behind the end of the zlib stream, found 0x78 "
         "'x'"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run({"check"}, row.input), 3) << row.what;
        EXPECT_EQ(error.substr(0, error.find('\n')), "tivra-wire: standard input: " + row.expected)
            << row.what;
        EXPECT_EQ(output, "") << row.what;
    }
    std::string damaged = deflated(frameOf("5=" + std::string(3000, 'x')));
    damaged[damaged.size() / 2] = static_cast<char>(~damaged[damaged.size() / 2]);
    EXPECT_EQ(run({"check"}, damaged), 3);
    EXPECT_THAT(error, HasSubstr("expected a zlib stream, found what zlib refuses near compressed byte "));
    // What came before a fault or a file that is missing is written.
    EXPECT_EQ(run({"convert"}, good + "x"), 3);
    EXPECT_EQ(output, "SYMBOL.TICKER=IBM\n");
    EXPECT_EQ(run({"convert", "--to", "zkvn", "-", "/no/such"}, good), 4);
    EXPECT_EQ(convert(output, {"--to", "kvn"}), good);
    // Values that the other form cannot hold.
    EXPECT_EQ(run({"convert"}, frameOf("5=A\nB")), 3);
    EXPECT_THAT(error,
                HasSubstr("byte 9 (message 1): expected text that a line can hold, found the byte 0x0a "
                          "in a value\n"));
    EXPECT_EQ(run({"convert", "--to", "kvn"}, "5=A\x03M\n"), 3);
    EXPECT_THAT(error,
                HasSubstr("byte 3 (message 1): expected text that a frame can hold, found the byte 0x03 "
                          "in a value\n"));
}

TEST_F(Wire, PointsAtTheFaultInTheBytesNextToIt) {
    const struct {
        std::string input;
        std::string excerpt;
    } rows[] = {
        {frameOf("5=I") + "\x05", "    \\x04 \\x00\\x00\\x00\\x035=I\\x03\\x05\n"
                                  "                                ^\n"},
        {"5=IBM\nBID=1|ASK=\xff|5=IBM\n5=X\n", "    BID=1|ASK=\\xFF|5=IBM\n"
                                               "              ^\n"},
        {"BID=1\n5=A|", "    5=A|\n        ^\n"},
        // No more of a long message than fits a line of a terminal.
        {"5=" + std::string(100, 'a') + "|ASK=x|5=" + std::string(100, 'b') + "\n",
         "    ..." + std::string(43, 'a') + "|ASK=x|5=" + std::string(20, 'b') + "...\n" +
             std::string(55, ' ') + "^\n"},
        {deflated(frameOf("1021=x")), "    \\x04 \\x00\\x00\\x00\\x061021=x\\x03\n"
                                      "                              ^\n"},
        {"\x78\x9c\xff\xff", ""}, // of a broken zlib stream there is nothing to show
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run({"check"}, row.input), 3) << row.excerpt;
        EXPECT_EQ(error.substr(error.find('\n') + 1), row.excerpt);
    }
}

TEST_F(Wire, TellsWhereAnInputThatIsCutEnds) {
    const std::string frames = frameOf("5=IBM") + frameOf("1020=1");
    for (std::size_t size = 0; size <= frames.size(); ++size) {
        const bool isWhole = size == 0 || size == 12 || size == frames.size();
        EXPECT_EQ(run({"check"}, frames.substr(0, size)), isWhole ? 0 : 3) << size;
        if (!isWhole) {
            EXPECT_THAT(error, testing::AllOf(HasSubstr("byte " + std::to_string(size) + " (message "),
                                              HasSubstr("found the end of the input\n")));
        }
    }
    // A live stream has no end of its own.
    const std::string packed = deflated(frames);
    EXPECT_EQ(run({"check"}, packed.substr(0, packed.size() - 4)), 0) << error;
}

TEST_F(Wire, EndsWithTheDocumentedCodes) {
    const std::string frames = writeFile("frames.kvn", frameOf("5=IBM"));
    const std::string half = writeFile("half.txt", mapLine(5, "SYMBOL.TICKER", "string"));
    const std::string wrong = writeFile("wrong.txt", mapLine(5, "A", "int") + mapLine(6, "B", "float"));
    const struct {
        std::vector<std::string> arguments;
        int code;
        std::string error;
    } rows[] = {
        {{}, 2, "subcommand"},
        {{"check"}, 2, "no dictionary named"},
        {{"--map", map}, 2, "subcommand"},
        {{"--map", "/no/such", "check"}, 2, "the dictionary cannot be loaded: cannot open /no/such"},
        {{"--map", "/tmp", "check"}, 2, "the dictionary cannot be loaded: cannot read /tmp"},
        {{"--map", wrong, "check"}, 2, wrong + ":2: Unknown storage definition in token add command"},
        {{"--map", map, "--map", half, "check"}, 2, half + ":1: Duplicate token id 5"},
        {{"--map", half, "check"}, 2, "Token UNKNOWNTOKEN not found; add it to a map file"},
        {{"--hub", "127.0.0.1:0", "-u", "demo", "check"}, 2, "\"127.0.0.1:0\" is no host"},
        {{"--hub", "127.0.0.1:1", "check"}, 2, "no user named"},
        {{"--hub", "127.0.0.1:1", "-u", "demo", "--password", "x", "check"}, 2, "readable by everybody"},
        {{"--hub", "127.0.0.1:1", "-u", "demo", "--password-file", "-", "check"},
         2,
         "standard input cannot be"},
        {{"--map", map, "--token", "NONE", "check"}, 2, "no map file has the token NONE"},
        {{"--map", map, "convert", "--to", "kvn", "--blanks"}, 2, "--blanks"},
        {{"--map", map, "convert", "--level", "10"}, 2, "--level"},
        {{"--map", map, "check", "/no/such"}, 4, "cannot open /no/such"},
        {{"--map", map, "check", "/tmp"}, 4, "cannot read /tmp"},
        {{"--map", map, "convert", "-o", frames, frames}, 2, frames + " is the input and the output"},
        {{"--map", map, "convert", "-o", "/no/such/out"}, 5, "cannot write /no/such/out"},
        {{"--map", map, "convert", "-o", "/dev/full", frames}, 5, "cannot write /dev/full"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(runBare(row.arguments), row.code) << row.error;
        EXPECT_THAT(error, HasSubstr(row.error));
        EXPECT_THAT(error, testing::StartsWith("tivra-wire: "));
    }
    EXPECT_EQ(std::filesystem::file_size(frames), 12U);
}

} // namespace
