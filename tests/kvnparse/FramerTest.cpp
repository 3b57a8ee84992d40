#include "ParserTestKit.h"
#include "tp/SocketPair.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/Framer.h"
#include "kvnparse/StreamFramer.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using namespace std::string_literals;

constexpr int MORE = 1;

/// What one pull gives: its result, and the frame (0) or the text (-1).
struct Step {
    int result;
    std::string content;
    bool operator==(const Step&) const = default;
};

struct Reader : Feed<Framer> {
    Reader(const char* name, int size) : Feed(Framer::alloc(name, size), static_cast<std::size_t>(size)) {}

    [[nodiscard]] Step pull() {
        bufref frame;
        const int result = target->pull(&frame);
        return {result, result == 0 ? std::string(frame.view()) : result < 0 ? tp::te_geterror() : ""};
    }

    /// All steps until the framer wants more input.
    [[nodiscard]] std::vector<Step> drain() {
        std::vector<Step> steps;
        for (Step step = pull(); step.result != MORE; step = pull())
            steps.push_back(step);
        return steps;
    }
};

std::vector<Step> stepsOf(const char* name, std::string_view bytes) {
    Reader reader(name, 4096);
    reader.push(bytes);
    return reader.drain();
}

TEST(Framer, TakesWholeFramesInPlaceAndJudgesNothingBelowSixBytes) {
    const std::string plain = frameOf("1=5|2=ABC");
    EXPECT_EQ(plain, "\x04\x20\x00\x00\x00\x09\x31\x3D\x35\x7C\x32\x3D\x41\x42\x43\x03"s);
    const std::string empty = frameOf("");
    const std::string misleading = frameOf("1=\x04 \0\0\0\0\x03|2=\x04"s);
    EXPECT_THAT(stepsOf("kvn", plain + empty + misleading),
                ElementsAre(Step{0, plain}, Step{0, empty}, Step{0, misleading}));
    EXPECT_THAT(stepsOf("kvn", "xxxxx"), ElementsAre());
    EXPECT_THAT(stepsOf("newline", "1=2\n\nB=3\nrest"),
                ElementsAre(Step{0, "1=2\n"}, Step{0, "\n"}, Step{0, "B=3\n"}));
}

const std::string GOOD = frameOf("7=x");

TEST(Framer, GarbageIsReportedAndSkipped) {
    const struct {
        std::string bytes;
        std::vector<Step> steps;
    } cases[] = {
        {"\xff\x80garbage" + GOOD,
         {{-1, "Invalid KVN header: ffffffff ffffff80"}, {-1, "Skipping 9 bytes"}, {0, GOOD}}},
        {"\x04 \xff\xff\xff\xf9"s + GOOD,
         {{-1, "Invalid KVN header size: 0"}, {-1, "Skipping 6 bytes"}, {0, GOOD}}},
        // One below the wrap is merely a frame that does not fit; it is not refused as too large before the
        // buffer is full.
        {"\x04 \xff\xff\xff\xf8"s + GOOD, {}},
        {"\x04 \0\0\0\1xy\x04 \0\0\0\0z\4\4"s + GOOD,
         {{-1, "Invalid ETX (79)"}, {-1, "Skipping 17 bytes"}, {0, GOOD}}},
        {"x" + GOOD, {{-1, "Invalid KVN header: 78 04"}, {-1, "Skipping 1 bytes"}, {0, GOOD}}},
        {"abcdefgh\x04 ", {{-1, "Invalid KVN header: 61 62"}, {-1, "Skipping 8 bytes (still searching)"}}},
    };
    for (const auto& row : cases)
        EXPECT_THAT(stepsOf("kvn", row.bytes), ElementsAreArray(row.steps)) << row.bytes;
}

TEST(Framer, FrameOfTheWholeBufferFitsAndALongerOneIsRefused) {
    Reader reader("kvn", 64);
    const std::string largest = frameOf(std::string(57, 'b'));
    reader.push(largest);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{0, largest}));
    reader.push(frameOf(std::string(58, 'b')).substr(0, 64));
    EXPECT_EQ(reader.pull(), (Step{-1, "Block too large (max is 64)."}));
    EXPECT_EQ(reader.pull(), (Step{-1, "Skipping 64 bytes (still searching)"}));
    reader.push("b\x03" + GOOD);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Skipping 2 bytes"}, Step{0, GOOD}));
}

TEST(Framer, TooLongALineIsSkippedUpToWhatIsThere) {
    Reader reader("newline", 8);
    reader.push("12345678");
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Block too large (max is 8)."},
                                            Step{-1, "Skipping 8 bytes (still searching)"}));
    reader.push("9\nA\n");
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Skipping 0 bytes"}, Step{0, "9\n"}, Step{0, "A\n"}));
}

TEST(Framer, ResetForgetsBytesAndLossOfStep) {
    Reader reader("kvn", 64);
    reader.push("garbage.");
    EXPECT_EQ(reader.pull().result, -1);
    reader.target->reset();
    EXPECT_EQ(reader.pull().result, MORE);
    reader.push(GOOD);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{0, GOOD}));
}

TEST(Framer, MoveRemainingKeepsWhatFits) {
    Reader reader("kvn", 64);
    reader.push(GOOD + "\x04 \0\0"s);
    EXPECT_EQ(reader.pull().result, 0);
    char place[3];
    EXPECT_EQ(reader.target->moveRemaining(bufref(place, sizeof place)), 3);
    EXPECT_EQ(std::string_view(place, 3), "\x04 \0"s);
}

TEST(StreamFramer, ReadsFramesByteByByteUntilThePeerCloses) {
    SocketPair sockets;
    const auto framer = StreamFramer::alloc("kvn", 64);
    const std::string stream = frameOf("1=5") + GOOD + frameOf("");
    std::string received;
    bufref frame;
    for (const char& byte : stream) {
        sockets.write({&byte, 1});
        ASSERT_EQ(framer->push(sockets.fd()), 1);
        int result = 0;
        while ((result = framer->pull(&frame)) == 0)
            received += frame.view();
        ASSERT_EQ(result, MORE);
    }
    EXPECT_EQ(received, stream);
    sockets.hangUp();
    EXPECT_EQ(framer->push(sockets.fd()), 0);
    EXPECT_EQ(framer->push(-1), -1);
    EXPECT_EQ(framer->pull(&frame), MORE);
}

TEST(StreamFramer, FullBufferDoesNotReadAndPullSaysSo) {
    SocketPair sockets;
    const auto framer = StreamFramer::alloc("kvn", 64);
    const std::string tooLong = frameOf(std::string(70, 'b'));
    sockets.write(tooLong + GOOD);
    ASSERT_EQ(framer->push(sockets.fd()), 64);
    ASSERT_EQ(framer->push(sockets.fd()), 1);
    bufref frame;
    ASSERT_EQ(framer->pull(&frame), -1);
    EXPECT_STREQ(tp::te_geterror(), "Block too large (max is 64).");
    EXPECT_EQ(framer->pull(&frame), -1);
    ASSERT_GT(framer->push(sockets.fd()), 1);
    EXPECT_EQ(framer->pull(&frame), -1);
    ASSERT_EQ(framer->pull(&frame), 0);
    EXPECT_EQ(frame.view(), GOOD);
}

TEST(StreamFramer, AllocRefusesWhatItCannotBuild) {
    EXPECT_EQ(StreamFramer::alloc("nosuch", 64), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Could not find option 'nosuch'");
    EXPECT_EQ(StreamFramer::alloc("kvn", -1), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing buffer space StreamFrammer::alloc");
}

TEST(FactoryLists, HelpListsTheRowsInOrder) {
    EXPECT_EQ(FramerList.getName("help"), nullptr);
    EXPECT_THAT(tp::te_geterror(),
                testing::StartsWith("\nAvailable options are:"
                                    "\n          newline : new line separated (useful for vkvn messages)"
                                    "\n              kvn : Brindsel Token Format (HUB->applications)"));
}

std::unique_ptr<Framer> makesNothing(int) {
    return nullptr;
}

TEST(FactoryLists, OwnRowsStandBehindTheBuiltInOnesAndTheFirstMatchWins) {
    registerFramer(&makesNothing, "kvn", "hidden by the built-in one");
    registerFramer(&makesNothing, "makes nothing", "of this test");
    EXPECT_NE(Framer::alloc("kvn", 64), nullptr);
    EXPECT_EQ(Framer::alloc("makes nothing", 64), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing framer class 'makes nothing'");
    EXPECT_EQ(Framer::alloc("makes", 64), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Could not find option 'makes'");
}

} // namespace
