// tivra-wire on files and pipes.
#include "ToolFixture.h"
#include "kvnparse/Deflater.h"

#include <algorithm>

using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using tivra_sim::encodeFrame;
using namespace std::string_literals;

namespace {

std::string deflated(const std::string& bytes) {
    return kvnparse_test::Deflater()(bytes, Z_FINISH);
}

class Wire : public ToolFixture {
protected:
    Wire() {
        // The last three have names that a reader of lines would not find them by.
        std::istringstream tokens("3 PERMISSION int 4 ENUM.SRC.ID int 5 SYMBOL.TICKER string 6 REFRESH int "
                                  "9 PART.CODE string 10 ENUM.DISPLAY.PRECISION int 1020 BID double "
                                  "1004 ACTIVITY.DATETIME double 1021 BID.SIZE int 1022 ASK double "
                                  "1025 QUOTE.CONDITION string 5004 TOKEN.DEL int 5026 QUERY.TAG int "
                                  "45028 UNKNOWNTOKEN string 45029 UNKNOWNSVALUE string 80 5 int 81 A=B int");
        std::string lines = "cmd=AddToken|name=|token=82|storage=string\n";
        for (std::string number, name, storage; tokens >> number >> name >> storage;)
            lines += "cmd=AddToken|name=" + name + "|token=" + number + "|storage=" + storage + "\n";
        writeFile("map", lines + "cmd=AddShortName|name=BID|shortname=b\n");
    }

    int runOn(const std::string& input, const std::string& arguments) {
        writeFile("input", input);
        return run("tivra-wire -m map " + arguments + " < input");
    }

    std::string converted(const std::string& input, const std::string& options = "") {
        EXPECT_EQ(runOn(input, "convert " + options), 0) << tool->error();
        return tool->output();
    }
};

TEST_F(Wire, ConvertsFieldsOfAllKindsAndBack) {
    const std::string known = encodeFrame("5026=18|4=558|5=IBM|3=7|9=Q|6=1|10=131|1020=99.5|1021=|1025=|4=9");
    const std::string frames = known + encodeFrame("777=abc|1004=1381118400.125|5=A B\xe9");
    const std::string lines =
        "QUERY.TAG=18|ENUM.SRC.ID=558|SYMBOL.TICKER=IBM|PERMISSION=7|PART.CODE=Q|REFRESH=1|"
        "ENUM.DISPLAY.PRECISION=131|BID=99.5|TOKEN.DEL=1021|QUOTE.CONDITION=|ENUM.SRC.ID=9\n"
        "777=abc|ACTIVITY.DATETIME=1381118400.125|SYMBOL.TICKER=A B\xe9\n";
    EXPECT_EQ(converted(frames), lines);
    EXPECT_EQ(converted(deflated(frames), "--to vkvn"), lines);
    EXPECT_EQ(converted(known, "--blanks"),
              "QUERY.TAG=18 ENUM.SRC.ID=558 SYMBOL.TICKER=IBM PERMISSION=7 PART.CODE=Q REFRESH=1 "
              "ENUM.DISPLAY.PRECISION=131 b=99.5 TOKEN.DEL=1021 QUOTE.CONDITION= ENUM.SRC.ID=9\n");
    // A number that the dictionary lacks has no form of its own in frames.
    EXPECT_EQ(converted(lines, "--to kvn"),
              known + encodeFrame("45028=777|45029=abc|1004=1381118400.125|5=A B\xe9"));
    // A last line without its end, and numbers in place of names, of which the first looks like a zlib
    // header.
    EXPECT_EQ(converted("80=5|5=IBM|BID=1", "--to kvn"), encodeFrame("80=5|5=IBM|1020=1"));
    // Whatever is read from frames is read again from their lines, also the fields behind UNKNOWNTOKEN.
    for (const auto& [body, line] :
         {std::pair("80=1|81=2|82=x|5=IBM", "80=1|81=2|82=x|SYMBOL.TICKER=IBM\n"),
          std::pair("45028=999|1020=1|45028=999", "UNKNOWNTOKEN=999|BID=1|UNKNOWNTOKEN=999\n"),
          std::pair("45028=BID|45029=5|45028=1020|45029=6",
                    "UNKNOWNTOKEN=BID|UNKNOWNSVALUE=5|UNKNOWNTOKEN=1020|UNKNOWNSVALUE=6\n")}) {
        EXPECT_EQ(converted(encodeFrame(body)), line);
        EXPECT_EQ(converted(line, "--to kvn"), encodeFrame(body));
    }
}

TEST_F(Wire, TheDaySurvivesEveryWayRound) {
    std::string frames;
    tivra_sim::readTradingDay(TIVRA_SAMPLE_DAY, [&](const tivra_sim::MarketEvent& event) {
        frames += encodeFrame(tivra_sim::eventBody(event, 100, tivra_sim::Playback().midnight, 1));
        return true;
    });
    writeFile("day", frames);
    ASSERT_EQ(run("tivra-wire --hub $HUB -u demo map -o dictionary"), 0) << tool->error();
    const std::string wire = "tivra-wire -m dictionary ";
    for (const char* const level : {"0", "9"}) {
        ASSERT_EQ(run(wire + "convert --to zkvn -o packed day --level " + level), 0) << tool->error();
        ASSERT_EQ(run(wire + "convert --to kvn packed"), 0) << tool->error();
        EXPECT_TRUE(tool->output() == frames) << "level " << level;
    }
    ASSERT_EQ(run(wire + "convert --to vkvn day"), 0) << tool->error();
    const std::string lines = tool->output();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 40000);
    writeFile("lines", lines);
    ASSERT_EQ(run(wire + "convert --to kvn -o written lines"), 0) << tool->error();
    ASSERT_EQ(run(wire + "convert --to vkvn written"), 0) << tool->error();
    EXPECT_TRUE(tool->output() == lines);
    const std::string checked =
        "day: kvn, 40000 messages in " + std::to_string(frames.size()) + " bytes, 40000 accepted\n";
    expect({{wire + "check day day", 0, checked + checked, ""}});
}

TEST_F(Wire, DumpsFieldsWithTheirPlaces) {
    ASSERT_EQ(runOn(encodeFrame("5=IBM") + encodeFrame("777=a\x01|1020="), "dump"), 0) << tool->error();
    EXPECT_EQ(tool->output(), "frame 1 at byte 0, 12 bytes\n"
                              "         6       5  string   SYMBOL.TICKER                     IBM\n"
                              "frame 2 at byte 12, 19 bytes\n"
                              "        18     777  unknown  -                                 a\\x01\n"
                              "        25    1020  double   BID                               (deleted)\n");
    ASSERT_EQ(runOn("SYMBOL.TICKER=IBM\n4=9\n", "dump"), 0) << tool->error();
    EXPECT_EQ(tool->output(), "line 1 at byte 0, 18 bytes\n"
                              "         0       5  string   SYMBOL.TICKER                     IBM\n"
                              "line 2 at byte 18, 4 bytes\n"
                              "        18       4  int      ENUM.SRC.ID                       9\n");
}

TEST_F(Wire, ShowsWhatHasComeOfAPipeThatStaysOpen) {
    const std::string pipe = directory + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    start("tivra-wire -m map dump pipe");
    std::ofstream writer(pipe, std::ios::binary);
    writer << encodeFrame("5=IBM") << "\x04 " << std::flush;
    EXPECT_TRUE(tool->waitForOutput(contains("SYMBOL.TICKER                     IBM\n")));
    writer.close();
    EXPECT_EQ(tool->waitForEnd(), 3);
}

TEST_F(Wire, FiltersByTokenSourceAndSymbol) {
    const std::string lines = "4=1|5=A|BID=1\n4=2|5=A|ASK=1\n4=1|5=B|BID=\n4=3|BID=2\n";
    for (const auto& [options, expected] :
         {std::pair("--source 1 -s 2 --symbol A", "4=1|5=A|BID=1\n4=2|5=A|ASK=1\n"),
          std::pair("--token BID", "4=1|5=A|BID=1\n4=1|5=B|BID=\n4=3|BID=2\n"),
          std::pair("--token 1022", "4=2|5=A|ASK=1\n"), std::pair("--symbol C", "")})
        EXPECT_EQ(converted(lines, options), expected);
}

TEST_F(Wire, ReportsTheFirstFaultWithItsPlaceAndTheBytesNextToIt) {
    const std::string good = encodeFrame("5=IBM"); // 12 bytes
    const std::string end = "expected \"|\" or the end of the message behind a value, found ";
    const struct {
        std::string input;
        std::string expected; ///< behind the name of the input
        std::string excerpt = "";
    } rows[] = {
        {encodeFrame("5=I") + "\x05", "byte 10 (message 2): expected 0x04, the start of a frame, found 0x05",
         "    \\x04 \\x00\\x00\\x00\\x035=I\\x03\\x05\n"
         "                                ^\n"},
        {good + "\x04!\0\0\0\1xx"s,
         "byte 13 (message 2): expected 0x20, the second byte of a frame, found 0x21 '!'"},
        {good + "\x04 \xff\xff\xff\xff"s,
         "byte 14 (message 2): expected a body of at most 16777209 bytes, found a length of 4294967295"},
        {good + "\x04 \0\0\0\x03"s + "5=IB",
         "byte 21 (message 2): expected 0x03, the end of the frame, found 0x42 'B'"},
        {good + encodeFrame(""), "byte 18 (message 2): expected a token's number and \"=\", found 0x03"},
        {encodeFrame("BID=1"), "byte 6 (message 1): expected a token's number and \"=\", found 0x42 'B'"},
        {good + encodeFrame("5=X|1021=1.5"), "byte 28 (message 2): " + end + "0x2e '.'"},
        {encodeFrame("5=I\x03M"),
         "byte 9 (message 1): expected the end of the frame behind its end byte, found 0x03"},
        {"5=IBM\nBID=1|ASK=\xff|5=IBM\n5=X\n", "byte 16 (message 2): " + end + "0xff",
         "    BID=1|ASK=\\xFF|5=IBM\n"
         "              ^\n"},
        {"BID=1\n5=A|",
         "byte 10 (message 2): expected a token's name or number and \"=\", found the end of the input",
         "    5=A|\n        ^\n"},
        {"BID=1\n\nBID=2\n", "byte 6 (message 2): expected a token's name or number and \"=\", found 0x0a"},
        // No more of a long message than fits a line of a terminal.
        {"5=" + std::string(100, 'a') + "|ASK=x|5=" + std::string(100, 'b') + "\n",
         "byte 107 (message 1): " + end + "0x78 'x'",
         "    ..." + std::string(43, 'a') + "|ASK=x|5=" + std::string(20, 'b') + "...\n" +
             std::string(55, ' ') + "^\n"},
        {deflated(good + encodeFrame("1021=x")), "byte 23 (message 2): " + end + "0x78 'x'",
         "    ...\\x00\\x00\\x055=IBM\\x03\\x04 \\x00\\x00\\x00\\x061021=x\\x03\n" + std::string(54, ' ') +
             "^\n"},
        {deflated(good) + "x",
         "byte 12 (message 2): expected the end of the input behind the end of the zlib stream, found 0x78 "
         "'x'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expected);
        EXPECT_EQ(runOn(row.input, "check"), 3);
        EXPECT_THAT(tool->error(),
                    StartsWith("tivra-wire: standard input: " + row.expected + "\n" + row.excerpt));
        EXPECT_EQ(tool->output(), "");
    }
    std::string damaged = deflated(encodeFrame("5=" + std::string(3000, 'x')));
    damaged[damaged.size() / 2] = static_cast<char>(~damaged[damaged.size() / 2]);
    EXPECT_EQ(runOn(damaged, "check"), 3);
    // There are no bytes to point at.
    EXPECT_THAT(tool->error(),
                testing::MatchesRegex("[^\n]*expected a zlib stream, found what zlib refuses near "
                                      "compressed byte [^\n]*\n"));
}

TEST_F(Wire, WritesWhatStandsBeforeAFaultAndRefusesWhatTheOtherFormCannotHold) {
    const std::string good = encodeFrame("5=IBM");
    EXPECT_EQ(runOn(good + "x", "convert"), 3);
    EXPECT_EQ(tool->output(), "SYMBOL.TICKER=IBM\n");
    EXPECT_EQ(runOn(good, "convert --to zkvn - /no/such"), 4);
    EXPECT_EQ(converted(tool->output(), "--to kvn"), good);
    EXPECT_EQ(runOn(encodeFrame("5=A\nB"), "convert"), 3);
    EXPECT_THAT(tool->error(),
                HasSubstr("byte 9 (message 1): expected text that a line can hold, found the byte 0x0a "
                          "in a value\n"));
    EXPECT_EQ(runOn("5=A\x03M\n", "convert --to kvn"), 3);
    EXPECT_THAT(tool->error(),
                HasSubstr("byte 3 (message 1): expected text that a frame can hold, found the byte 0x03 "
                          "in a value\n"));
}

TEST_F(Wire, TellsWhereAnInputThatIsCutEnds) {
    const std::string frames = encodeFrame("5=IBM") + encodeFrame("1020=1");
    for (std::size_t size = 0; size <= frames.size(); ++size) {
        const bool isWhole = size == 0 || size == 12 || size == frames.size();
        EXPECT_EQ(runOn(frames.substr(0, size), "check"), isWhole ? 0 : 3) << size;
        if (!isWhole) {
            EXPECT_THAT(tool->error(), AllOf(HasSubstr("byte " + std::to_string(size) + " (message "),
                                             HasSubstr("found the end of the input\n")));
        }
    }
    // A live stream has no end of its own.
    const std::string packed = deflated(frames);
    EXPECT_EQ(runOn(packed.substr(0, packed.size() - 4), "check"), 0) << tool->error();
}

} // namespace
