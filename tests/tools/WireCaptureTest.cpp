// tivra-wire and tivra-cat on captures.
#include "ToolFixture.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>

using namespace tivra_capture;
using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using tivra_sim::encodeFrame;

namespace {

constexpr std::int64_t kBegin = 1700000000000000000; // 2023-11-14T22:13:20Z
constexpr std::int64_t kSecond = 1000000000;

class WireCapture : public ToolFixture {
protected:
    WireCapture() {
        std::istringstream tokens(
            "3 PERMISSION int 4 ENUM.SRC.ID int 5 SYMBOL.TICKER string 6 SYMBOL.NAME string 24 REFRESH int "
            "9 PART.CODE string 30 SEQ int 101 BID double 5004 TOKEN.DEL int "
            "45028 UNKNOWNTOKEN string 45029 UNKNOWNSVALUE string");
        std::string lines;
        for (std::string number, name, storage; tokens >> number >> name >> storage;)
            lines += "cmd=AddToken|name=" + name + "|token=" + number + "|storage=" + storage + "\n";
        writeFile("map", lines);
        write("a", {{0, ibm(1)},
                    {1, "4=101|5=SPY|9=x, \"y\"|101=+1.50|777=who"},
                    {2, Note{"hole", {{"source", "100"}, {"missing", "3"}}}.body()},
                    {3, ibm(4) + "|101="}});
        write("b", {{0, ibm(10)}, {1, ibm(11)}, {5, "5=IBM|4=100|30=12"}});
    }

    static std::string ibm(int sequence) { return "4=100|5=IBM|30=" + std::to_string(sequence); }

    void write(const std::string& name,
               const std::vector<std::pair<std::int64_t, std::string>>& messages) const {
        CaptureWriter writer(directory + "/" + name);
        for (const auto& [seconds, body] : messages)
            writer.add({kBegin + seconds * kSecond, body});
        writer.finish();
    }

    [[nodiscard]] std::vector<std::string> bodies(const std::string& name) const {
        CaptureReader reader(directory + "/" + name);
        EXPECT_TRUE(reader.isComplete());
        std::vector<std::string> found;
        Message message;
        while (reader.next(message))
            found.emplace_back(message.body);
        return found;
    }

    const std::string hole = "!kind=hole|source=100|missing=3";
};

struct SliceCase {
    const char* options;
    std::vector<std::string> bodies;
};

class WireSlice : public WireCapture, public testing::WithParamInterface<SliceCase> {};

TEST_P(WireSlice, KeepsWhatIsAskedForInTheOrderOfTheTimes) {
    ASSERT_EQ(run(std::string("tivra-wire slice -o out ") + GetParam().options), 0) << tool->error();
    EXPECT_EQ(bodies("out"), GetParam().bodies);
}

const std::string kSpy = "4=101|5=SPY|9=x, \"y\"|101=+1.50|777=who";
const std::string kHole = "!kind=hole|source=100|missing=3";
const std::string kIbm1 = "4=100|5=IBM|30=1";
const std::string kIbm4 = "4=100|5=IBM|30=4|101=";

INSTANTIATE_TEST_SUITE_P(
    Cases, WireSlice,
    testing::Values(SliceCase{"a", {kIbm1, kSpy, kHole, kIbm4}},
                    SliceCase{"a b",
                              {kIbm1, "4=100|5=IBM|30=10", kSpy, "4=100|5=IBM|30=11", kHole, kIbm4,
                               "5=IBM|4=100|30=12"}},
                    SliceCase{"--symbol SPY a", {kSpy, kHole}}, SliceCase{"-s 101 a", {kSpy}},
                    SliceCase{"-s 100 --symbol IBM --begin 3 a b", {kIbm4, "5=IBM|4=100|30=12"}},
                    SliceCase{"--begin 1 --end 2.5 a", {kSpy, kHole}},
                    SliceCase{"--begin 2023-11-14T22:13:21Z --end 2023-11-14T22:13:22.000Z a", {kSpy}},
                    SliceCase{"--begin 9 a", {}}));

TEST_F(WireCapture, IsReadAsOtherStreamsAreAndKnowsItsTimesAndNotes) {
    const std::string frames = encodeFrame(kIbm1) + encodeFrame(kSpy) + encodeFrame(kIbm4);
    expect(
        {{"tivra-wire -m map check a", 0,
          "a: capture, 3 messages in " + std::to_string(frames.size()) + " bytes, 3 accepted, 1 notes\n", ""},
         {"tivra-wire -m map convert --to kvn a", 0, frames, ""},
         {"tivra-wire -m map --symbol SPY convert --to kvn a", 0, encodeFrame(kSpy), ""},
         {"tivra-wire -m map --begin 3 convert --to kvn a", 0, encodeFrame(kIbm4), ""},
         {"tivra-wire -m map dump a", 0, HasSubstr("note " + hole + "\n"), ""},
         {"tivra-wire -m map convert --to csv a", 0,
          "received,source,symbol,field,value\n"
          "2023-11-14T22:13:20.000000000Z,100,IBM,SEQ,1\n"
          "2023-11-14T22:13:21.000000000Z,101,SPY,PART.CODE,\"x, \"\"y\"\"\"\n"
          "2023-11-14T22:13:21.000000000Z,101,SPY,BID,+1.50\n"
          "2023-11-14T22:13:21.000000000Z,101,SPY,777,who\n"
          "2023-11-14T22:13:23.000000000Z,100,IBM,SEQ,4\n"
          "2023-11-14T22:13:23.000000000Z,100,IBM,BID,\n",
          ""},
         {"tivra-wire -m map -s 100 convert --to csv -F SEQ,101 a", 0,
          "received,source,symbol,SEQ,101\n"
          "2023-11-14T22:13:20.000000000Z,100,IBM,1,\n"
          "2023-11-14T22:13:23.000000000Z,100,IBM,4,\n",
          ""}});
    ASSERT_EQ(run("tivra-wire -m map convert --to json a"), 0);
    const std::vector<nlohmann::json> lines = jsonLines(tool->output());
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1],
              nlohmann::json::parse(R"({"type":"message","received":"2023-11-14T22:13:21.000000000Z",
        "source":101,"symbol":"SPY","fields":{"PART.CODE":"x, \"y\"","BID":1.5,"777":"who"}})"));
    EXPECT_EQ(lines[2], nlohmann::json::parse(R"({"type":"note","received":"2023-11-14T22:13:22.000000000Z",
        "kind":"hole","source":100,"missing":3})"));
    EXPECT_TRUE(lines[3]["fields"]["BID"].is_null());
}

TEST_F(WireCapture, IsWrittenFromAnyFormAndKeepsItsBytesAndTimes) {
    writeFile("lines", "ENUM.SRC.ID=100|SYMBOL.TICKER=IBM|BID=1.5\n");
    ASSERT_EQ(run("tivra-wire -m map convert --to capture -o out lines a"), 0) << tool->error();
    EXPECT_THAT(bodies("out"), ElementsAre("4=100|5=IBM|101=1.5", kIbm1, kSpy, kHole, kIbm4));
    ASSERT_EQ(run("tivra-wire -m map convert --to capture -o again a"), 0) << tool->error();
    EXPECT_EQ(textOf(directory + "/again"), textOf(directory + "/a"));
}

TEST_F(WireCapture, BadOnesAndBadUsesAreRefused) {
    std::string damaged = textOf(directory + "/a");
    damaged[60] = static_cast<char>(damaged[60] ^ 1);
    writeFile("damaged", damaged);
    writeFile("cut", textOf(directory + "/a").substr(0, textOf(directory + "/a").size() - 30));
    writeFile("frames", encodeFrame(kIbm1));
    expect(
        {{"tivra-wire slice -o out damaged", 3, "", HasSubstr("damaged: at byte 16: ")},
         {"tivra-wire -m map check damaged", 3, "", HasSubstr("damaged: at byte 16: ")},
         {"tivra-wire slice -o out frames", 3, "", HasSubstr("frames: not a capture")},
         {"tivra-wire slice -o out none", 3, "", HasSubstr("cannot open the capture none")},
         {"tivra-wire slice -o out cut", 0, "", HasSubstr("cut was cut off; its 4 whole messages are read")},
         {"tivra-wire slice -o /dev/full a", 5, "", HasSubstr("cannot write the capture /dev/full")},
         {"tivra-wire slice a", 2, "", HasSubstr("name one with --output")},
         {"tivra-wire slice -o out", 2, "", HasSubstr("not from standard input")},
         {"tivra-wire slice -o a a", 2, "", HasSubstr("a is the input and the output")},
         {"tivra-wire --token BID slice -o out a", 2, "", HasSubstr("no --token")},
         {"tivra-wire -m map convert --to capture a", 2, "", HasSubstr("name one with --output")},
         {"tivra-wire -m map convert -F BID a", 2, "", HasSubstr("--to csv")},
         {"tivra-wire -m map --begin 1 check frames", 2, "", HasSubstr("frames is no capture")},
         {"tivra-wire --begin noon slice -o out a", 2, "", HasSubstr("--begin \"noon\"")},
         {"tivra-wire --end 2023-11-14T22:13:99 slice -o out a", 2, "", HasSubstr("--end")}});
}

TEST_F(WireCapture, WireRecordingHasTheFramesOfAllThatCameAnswersToo) {
    start("tivra-cat $AT --record capture --record-wire wire -q -n 3 subscribe --snapshot 100:IBM");
    ASSERT_TRUE(waitForSubscription());
    const std::vector<std::string> sent{"4=100|5=IBM|101=1.50", "4=100|5=IBM|101=+2|99999=\xFF"};
    for (const std::string& body : sent)
        hub.sendBody(body);
    ASSERT_EQ(tool->waitForEnd(), 0) << tool->error();
    EXPECT_EQ(bodies("capture"), sent);
    const std::string wire = textOf(directory + "/wire");
    const std::string updates = encodeFrame(sent[0]) + encodeFrame(sent[1]);
    ASSERT_GT(wire.size(), updates.size());
    EXPECT_EQ(wire.substr(wire.size() - updates.size()), updates);
    EXPECT_THAT(wire.substr(0, wire.size() - updates.size()),
                AllOf(HasSubstr("5026=18|"), HasSubstr("5001=0")));
    expect({{"tivra-wire -m map --from kvn check wire", 0, HasSubstr("wire: kvn, 4 messages"), _}});
}

} // namespace
