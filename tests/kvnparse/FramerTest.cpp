#include "ReferenceFramer.h"

#include "kvnparse/FactoryLists.h"
#include "kvnparse/Framer.h"
#include "kvnparse/StreamFramer.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using KVNAPI::bufref;
using KVNAPI::Framer;
using KVNAPI::StreamFramer;
using kvnparse_test::ReferenceFramer;
using Step = ReferenceFramer::Step;
using testing::ElementsAre;
using testing::ElementsAreArray;
using namespace std::string_literals;

constexpr int MORE = 1;

std::string frameOf(std::string_view body) {
    const auto size = static_cast<unsigned>(body.size());
    std::string frame = "\x04 "s;
    for (const unsigned shift : {24u, 16u, 8u, 0u})
        frame += static_cast<char>(size >> shift & 0xff);
    return frame.append(body) + '\x03';
}

/// A framer with the buffer that every caller keeps for it.
class Reader {
public:
    Reader(const char* name, int size)
        : m_framer(Framer::alloc(name, size)), m_buffer(static_cast<std::size_t>(size), '\0') {}

    [[nodiscard]] std::size_t room() const { return m_buffer.size() - m_held; }

    void feed(std::string_view bytes) {
        m_held = static_cast<std::size_t>(m_framer->moveRemaining(bufref(m_buffer.data(), m_buffer.size())));
        ASSERT_LE(bytes.size(), room());
        bytes.copy(m_buffer.data() + m_held, bytes.size());
        m_held += bytes.size();
        m_framer->push(bufref(m_buffer.data(), m_held));
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
    std::size_t m_held = 0;
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

struct GarbageCase {
    const char* name;
    std::string bytes;
    std::vector<Step> steps;

    friend void PrintTo(const GarbageCase& c, std::ostream* out) { *out << c.name; }
};

class FramerGarbage : public testing::TestWithParam<GarbageCase> {};

TEST_P(FramerGarbage, IsReportedAndSkipped) {
    EXPECT_THAT(stepsOf("kvn", GetParam().bytes), ElementsAreArray(GetParam().steps));
}

const std::string GOOD = frameOf("7=x");

INSTANTIATE_TEST_SUITE_P(
    , FramerGarbage,
    testing::Values(
        GarbageCase{"WrongStart",
                    "\xff\x80garbage" + GOOD,
                    {{-1, "Invalid KVN header: ffffffff ffffff80"}, {-1, "Skipping 9 bytes"}, {0, GOOD}}},
        GarbageCase{"WrongMarker",
                    "\x04!aaaa" + GOOD,
                    {{-1, "Invalid KVN header: 04 21"}, {-1, "Skipping 6 bytes"}, {0, GOOD}}},
        GarbageCase{"LengthWrapsToZero",
                    "\x04 \xff\xff\xff\xf9"s + GOOD,
                    {{-1, "Invalid KVN header size: 0"}, {-1, "Skipping 6 bytes"}, {0, GOOD}}},
        GarbageCase{"LengthWrapsToSix",
                    "\x04 \xff\xff\xff\xff"s + GOOD,
                    {{-1, "Invalid KVN header size: 6"}, {-1, "Skipping 6 bytes"}, {0, GOOD}}},
        // One below the wrap is merely a frame that does not fit; it is not refused as too large before the
        // buffer is full.
        GarbageCase{"LengthJustBelowTheWrap", "\x04 \xff\xff\xff\xf8"s + GOOD, {}},
        GarbageCase{"WrongEnd",
                    "\x04 \0\0\0\1xy"s + GOOD,
                    {{-1, "Invalid ETX (79)"}, {-1, "Skipping 8 bytes"}, {0, GOOD}}},
        GarbageCase{"FalseStartsOnTheWay",
                    "\x04 \0\0\0\1xy\x04 \0\0\0\0z\4\4"s + GOOD,
                    {{-1, "Invalid ETX (79)"}, {-1, "Skipping 17 bytes"}, {0, GOOD}}},
        GarbageCase{"NothingToLandOn",
                    "abcdefgh",
                    {{-1, "Invalid KVN header: 61 62"}, {-1, "Skipping 8 bytes (still searching)"}}},
        GarbageCase{"CandidateMayYetComplete",
                    "abcdefgh\x04 ",
                    {{-1, "Invalid KVN header: 61 62"}, {-1, "Skipping 8 bytes (still searching)"}}}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST(Framer, ResumesAtTheCandidateThatASearchHasFound) {
    Reader reader("kvn", 64);
    reader.feed("abcdefgh" + GOOD.substr(0, 4));
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Invalid KVN header: 61 62"},
                                            Step{-1, "Skipping 8 bytes (still searching)"}));
    reader.feed(GOOD.substr(4));
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Skipping 0 bytes"}, Step{0, GOOD}));
}

TEST(Framer, FrameBehindGarbageIsKeptWhenItEndsPastAFullBuffer) {
    Reader reader("kvn", 64);
    const std::string frame = frameOf(std::string(40, 'b'));
    const std::string garbage(40, 'g');
    reader.feed((garbage + frame).substr(0, 64));
    EXPECT_EQ(reader.drain().back().content, "Skipping 40 bytes (still searching)");
    reader.feed((garbage + frame).substr(64));
    EXPECT_THAT(reader.drain(), ElementsAre(Step{-1, "Skipping 0 bytes"}, Step{0, frame}));
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

/// Feeds the same pieces to both framers and compares every step.
void expectSameSteps(const char* name, ReferenceFramer::Format format, int size,
                     const std::vector<std::string>& pieces) {
    Reader reader(name, size);
    ReferenceFramer reference(format, static_cast<std::size_t>(size));
    for (std::string_view piece : pieces) {
        while (!piece.empty()) {
            const std::size_t room = static_cast<std::size_t>(size) - reference.held();
            const std::string_view part = piece.substr(0, room);
            piece.remove_prefix(part.size());
            reader.feed(part);
            reference.feed(part);
            for (;;) {
                const Step step = reader.pull();
                ASSERT_EQ(step, reference.pull()) << "ours: " << step.result << " " << step.content;
                if (step.result == MORE)
                    break;
            }
        }
    }
}

TEST(Framer, CompletesFramesSplitAtEveryByte) {
    const std::string stream = frameOf("") + frameOf("1=\x04 \0\0\0\0\x03"s) +
                               frameOf(std::string(300, 'x')) + frameOf("5026=17|2=ABC");
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        Reader reader("kvn", 512);
        reader.feed(stream.substr(0, split));
        std::vector<Step> steps = reader.drain();
        reader.feed(stream.substr(split));
        for (Step& step : reader.drain())
            steps.push_back(std::move(step));
        std::string whole;
        for (const Step& step : steps) {
            ASSERT_EQ(step.result, 0) << "split at " << split << ": " << step.content;
            whole += step.content;
        }
        ASSERT_EQ(whole, stream) << "split at " << split;
        ASSERT_EQ(steps.size(), 4u);
    }
}

std::string randomPiece(std::mt19937& random) {
    const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    std::string body;
    for (unsigned n = below(30); n > 0; --n)
        body += "\x03\x04 \n=|17a"[below(9)];
    std::string piece = frameOf(body);
    switch (below(6)) {
    case 0: // any byte damaged
        piece[below(static_cast<unsigned>(piece.size()))] = static_cast<char>(random());
        break;
    case 1: // cut short
        piece.resize(below(static_cast<unsigned>(piece.size())));
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
        std::vector<std::string> pieces;
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t length = 1 + random() % 40;
            pieces.push_back(stream.substr(at, length));
            at += length;
        }
        ASSERT_NO_FATAL_FAILURE(expectSameSteps("kvn", ReferenceFramer::TOKENS, 64, pieces)) << round;
        ASSERT_NO_FATAL_FAILURE(expectSameSteps("newline", ReferenceFramer::LINES, 32, pieces)) << round;
    }
}

class SocketPair {
public:
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_fds), 0); }
    ~SocketPair() {
        closeWriter();
        ::close(m_fds[0]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    [[nodiscard]] int reader() const { return m_fds[0]; }
    void write(std::string_view bytes) {
        EXPECT_EQ(::send(m_fds[1], bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void closeWriter() {
        if (m_fds[1] >= 0)
            ::close(m_fds[1]);
        m_fds[1] = -1;
    }

private:
    int m_fds[2] = {-1, -1};
};

TEST(StreamFramer, ReadsFramesByteByByteUntilThePeerCloses) {
    SocketPair sockets;
    const auto framer = StreamFramer::alloc("kvn", 64);
    const std::string stream = frameOf("1=5") + GOOD + frameOf("");
    std::string received;
    bufref frame;
    for (const char& byte : stream) {
        sockets.write({&byte, 1});
        ASSERT_EQ(framer->push(sockets.reader()), 1);
        int result = 0;
        while ((result = framer->pull(&frame)) == 0)
            received += frame.view();
        ASSERT_EQ(result, MORE);
    }
    EXPECT_EQ(received, stream);
    sockets.closeWriter();
    EXPECT_EQ(framer->push(sockets.reader()), 0);
    EXPECT_EQ(framer->push(-1), -1);
    EXPECT_EQ(framer->pull(&frame), MORE);
}

TEST(StreamFramer, FullBufferDoesNotReadAndPullSaysSo) {
    SocketPair sockets;
    const auto framer = StreamFramer::alloc("kvn", 64);
    const std::string tooLong = frameOf(std::string(70, 'b'));
    sockets.write(tooLong + GOOD);
    ASSERT_EQ(framer->push(sockets.reader()), 64);
    ASSERT_EQ(framer->push(sockets.reader()), 1);
    bufref frame;
    ASSERT_EQ(framer->pull(&frame), -1);
    EXPECT_STREQ(tp::te_geterror(), "Block too large (max is 64).");
    EXPECT_EQ(framer->pull(&frame), -1);
    ASSERT_GT(framer->push(sockets.reader()), 1);
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
    EXPECT_EQ(KVNAPI::FramerList.getName("help"), nullptr);
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

TEST(FactoryLists, RegisteredFramerThatMakesNothingIsReported) {
    KVNAPI::registerFramer(&makesNothing, "makes nothing", "of this test");
    EXPECT_EQ(Framer::alloc("makes nothing", 64), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing framer class 'makes nothing'");
}

TEST(FactoryLists, OwnRowsStandBehindTheBuiltInOnesAndTheFirstMatchWins) {
    // Static, since the rows of a list are never given back.
    static constinit KVNAPI::NameFactory<KVNAPI::framerFactory_t> list{[](KVNAPI::_factory& rows) {
        rows.append(KVNAPI::NameFactory<KVNAPI::framerFactory_t>::untyped(&makesLines), "first", "built in");
    }};
    list.registerName(&makesNothing, "first", "hidden by the built-in one");
    list.registerName(&makesNothing, "second", "own");
    EXPECT_EQ(list.getName("first"), &makesLines);
    EXPECT_EQ(list.getName("second"), &makesNothing);
    EXPECT_EQ(list.getName("sec"), nullptr);
}

} // namespace
