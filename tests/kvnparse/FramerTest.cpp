#include "ParserTestKit.h"
#include "ReferenceFramer.h"
#include "tp/SocketPair.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/Framer.h"
#include "kvnparse/StreamFramer.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;
using Step = ReferenceFramer::Step;
using testing::ElementsAre;
using testing::ElementsAreArray;
using namespace std::string_literals;

constexpr int MORE = 1;

/// A framer with the buffer that every caller keeps for it.
class Reader {
public:
    Reader(const char* name, int size)
        : m_framer(Framer::alloc(name, size)), m_buffer(static_cast<std::size_t>(size), '\0') {}

    void feed(std::string_view bytes) {
        const auto held =
            static_cast<std::size_t>(m_framer->moveRemaining(bufref(m_buffer.data(), m_buffer.size())));
        ASSERT_LE(held + bytes.size(), m_buffer.size());
        bytes.copy(m_buffer.data() + held, bytes.size());
        m_framer->push(bufref(m_buffer.data(), held + bytes.size()));
    }

    [[nodiscard]] Step pull() {
        bufref frame;
        const int result = m_framer->pull(&frame);
        if (result == 0)
            return {0, std::string(frame.view())};
        return {result, result < 0 ? tp::te_geterror() : ""};
    }

    /// All steps until the framer wants more input.
    [[nodiscard]] std::vector<Step> drain() {
        std::vector<Step> steps;
        for (Step step = pull(); step.result != MORE; step = pull())
            steps.push_back(step);
        return steps;
    }

    [[nodiscard]] Framer& framer() { return *m_framer; }

private:
    std::unique_ptr<Framer> m_framer;
    std::string m_buffer;
};

std::vector<Step> stepsOf(const char* name, std::string_view bytes) {
    Reader reader(name, 4096);
    reader.feed(bytes);
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
        {"abcdefgh\x04 ", {{-1, "Invalid KVN header: 61 62"}, {-1, "Skipping 8 bytes (still searching)"}}},
    };
    for (const auto& row : cases)
        EXPECT_THAT(stepsOf("kvn", row.bytes), ElementsAreArray(row.steps)) << row.bytes;
}

TEST(Framer, FrameOfTheWholeBufferFitsAndALongerOneIsRefused) {
    Reader reader("kvn", 64);
    const std::string largest = frameOf(std::string(57, 'b'));
    reader.feed(largest);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{0, largest}));
    reader.feed(frameOf(std::string(58, 'b')).substr(0, 64));
    EXPECT_EQ(reader.pull(), (Step{-1, "Block too large (max is 64)."}));
    EXPECT_EQ(reader.pull(), (Step{-1, "Skipping 64 bytes (still searching)"}));
    reader.feed("b\x03" + GOOD);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Skipping 2 bytes"}, Step{0, GOOD}));
}

TEST(Framer, ResetForgetsBytesAndLossOfStep) {
    Reader reader("kvn", 64);
    reader.feed("garbage.");
    EXPECT_EQ(reader.pull().result, -1);
    reader.framer().reset();
    EXPECT_EQ(reader.pull().result, MORE);
    reader.feed(GOOD);
    EXPECT_THAT(reader.drain(), ElementsAre(Step{0, GOOD}));
}

TEST(Framer, MoveRemainingKeepsWhatFits) {
    Reader reader("kvn", 64);
    reader.feed(GOOD + "\x04 \0\0"s);
    EXPECT_EQ(reader.pull().result, 0);
    char place[3];
    EXPECT_EQ(reader.framer().moveRemaining(bufref(place, sizeof place)), 3);
    EXPECT_EQ(std::string_view(place, 3), "\x04 \0"s);
}

/// Feeds pieces of a stream to both framers and compares every step.
void expectSameSteps(const char* name, ReferenceFramer::Format format, std::size_t size,
                     std::string_view stream, std::mt19937& random) {
    Reader reader(name, static_cast<int>(size));
    ReferenceFramer reference(format, size);
    while (!stream.empty()) {
        const std::string_view part = stream.substr(0, std::min(1 + random() % 40, size - reference.held()));
        stream.remove_prefix(part.size());
        reader.feed(part);
        reference.feed(part);
        for (int result = 0; result != MORE;) {
            const Step step = reader.pull();
            ASSERT_EQ(step, reference.pull()) << "ours: " << step.result << " " << step.content;
            result = step.result;
        }
    }
}

std::string randomPiece(std::mt19937& random) {
    const auto below = [&random](std::size_t n) { return random() % n; };
    std::string body;
    for (std::size_t n = below(30); n > 0; --n)
        body += "\x03\x04 \n=|17a"[below(9)];
    std::string piece = frameOf(body);
    switch (below(6)) {
    case 0: // any byte damaged
        piece[below(piece.size())] = static_cast<char>(random());
        break;
    case 1: // cut short
        piece.resize(below(piece.size()));
        break;
    case 2: // a length from the edges
        piece[2] = static_cast<char>(below(2) * 0xff);
        piece[3] = piece[4] = piece[2];
        piece[5] = static_cast<char>(0xf0 + below(16));
        break;
    default:
        break;
    }
    return piece;
}

TEST(Framer, AgreesWithTheReferenceOnRandomDamage) {
    std::mt19937 random(20131007);
    for (int round = 0; round < 3000; ++round) {
        std::string stream;
        for (auto n = 1 + random() % 12; n > 0; --n)
            stream += randomPiece(random);
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(expectSameSteps("kvn", ReferenceFramer::TOKENS, 64, stream, random));
        ASSERT_NO_FATAL_FAILURE(expectSameSteps("newline", ReferenceFramer::LINES, 32, stream, random));
    }
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

std::unique_ptr<Framer> makesLines(int size) {
    return Framer::alloc("newline", size);
}

TEST(FactoryLists, OwnRowsStandBehindTheBuiltInOnesAndTheFirstMatchWins) {
    registerFramer(&makesNothing, "makes nothing", "of this test");
    EXPECT_EQ(Framer::alloc("makes nothing", 64), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing framer class 'makes nothing'");
    // Static, since the rows of a list are never given back.
    static constinit NameFactory<framerFactory_t> list{[](_factory& rows) {
        rows.append(NameFactory<framerFactory_t>::untyped(&makesLines), "first", "built in");
    }};
    list.registerName(&makesNothing, "first", "hidden by the built-in one");
    list.registerName(&makesNothing, "second", "own");
    EXPECT_EQ(list.getName("first"), &makesLines);
    EXPECT_EQ(list.getName("second"), &makesNothing);
    EXPECT_EQ(list.getName("sec"), nullptr);
}

} // namespace
