#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <tp/te_error.h>

#include "RingFixture.h"
#include "kvnparse/Deflater.h"
#include "kvnparse/FactoryLists.h"
#include "kvnparse/Parser.h"
#include "kvnparse/StreamParser.h"

using namespace tivra_internal;

namespace {

using Frames = std::vector<std::string>;

/// Stands in for a compressed stream: each input byte is one frame of a thousand bytes, "!" is corrupt, and
/// "?" never becomes anything.
class Expander : public KVNAPI::Parser {
public:
    static std::string frameFor(char byte) { return frameOf(std::string(993, byte)); }

    int setMetaMap(KVNAPI::DataMap*) override { return 0; }
    int setOption(const char*, const char*) override { return -1; }
    void push(KVNAPI::bufref bytes) override { m_in = bytes; }
    int moveRemaining(KVNAPI::bufref dst) override {
        const auto count = std::min(m_in.len, dst.len);
        if (count > 0)
            std::memmove(dst.room(), m_in.buf, count);
        m_in = {dst.buf, count};
        return static_cast<int>(count);
    }
    int pull(KVNAPI::Message*) override { return 1; }
    int pull(KVNAPI::bufref* out) override {
        size_t produced = 0;
        while (produced < out->len && m_in.len > 0 && *m_in.buf != '?') {
            if (*m_in.buf == '!') {
                tp::te_error("corrupt");
                return -1;
            }
            const std::string frame = frameFor(*m_in.buf);
            const size_t part = std::min<size_t>(frame.size() - m_done, out->len - produced);
            std::memcpy(out->room() + produced, frame.data() + m_done, part);
            produced += part;
            m_done += part;
            if (m_done == frame.size()) {
                m_done = 0;
                m_in = {m_in.buf + 1, m_in.len - 1};
            }
        }
        out->len = produced;
        return 0;
    }
    void reset() override { m_in = {}; }
    [[nodiscard]] unsigned msglen() const override { return 0; }

private:
    KVNAPI::bufref m_in;
    size_t m_done = 0; ///< bytes of the present frame that are out
};

std::unique_ptr<KVNAPI::StreamParser> makeExpander(int bufferSize) {
    [[maybe_unused]] static const bool registered = [] {
        KVNAPI::registerParser(
            [](int) -> std::unique_ptr<KVNAPI::Parser> { return std::make_unique<Expander>(); },
            "test-expander", "a frame for each byte");
        return true;
    }();
    return KVNAPI::StreamParser::alloc("test-expander", nullptr, bufferSize);
}

class CompressedTest : public RingTest {
protected:
    CompressedTest() : RingTest(true) {}

    [[nodiscard]] bool readOnce() {
        return queue.readFromSocketThenWriteToQueue(socket.fd(), parser.get(), 1.0);
    }
    [[nodiscard]] bool goOn() { return queue.continueInflating(socket.fd(), parser.get(), 1.0); }
    /// Takes what is in the ring and goes on, until no input is left or the connection ends, which it says.
    bool drain() {
        for (int turns = 0; turns < 100; ++turns) {
            popAll();
            if (!queue.hasInputLeft())
                return false;
            if (goOn())
                return true;
        }
        ADD_FAILURE() << "no end of the input";
        return false;
    }

    std::unique_ptr<KVNAPI::StreamParser> parser = makeExpander(4096);
};

} // namespace

TEST_F(RingTest, FullRingDropsWhatTheSocketBringsAndFindsItsWayBack) {
    const std::string frame = frameOf(std::string(10000 - 7, 'x'));
    std::string many;
    for (int i = 0; i < 6; ++i)
        many += frame;
    uint64_t sent = 0;
    while (droppedIn() == 0) {
        socket.write(many);
        sent += many.size();
        for (int i = 0; i < 5; ++i)
            ASSERT_FALSE(readOnce());
    }
    // What is in the ring stays; the frame that the drop has cut is lost, and the stream goes on behind it.
    const size_t delivered = popAll();
    EXPECT_GE(delivered, 100U);
    EXPECT_LE(delivered * frame.size() + droppedIn(), sent);
    const std::string last = frameOf("1=last");
    feed(frame + frame + last);
    popAll();
    EXPECT_EQ(handler.frames.back(), last);
}

TEST_F(RingTest, GarbageThatFindsNoRoomCountsUntilAFrameEndsIt) {
    const std::string frame = frameOf("1=a"), garbage(20'000, 'g');
    feed(frame); // is never taken
    for (const bool hasFrames : {false, true}) {
        const std::string bytes = hasFrames ? garbage + frame : garbage;
        bool isClosed = false;
        for (size_t sent = 0; !isClosed && sent < 2 * kRing; sent += bytes.size()) {
            (void)queue.takeSignOfLife();
            socket.write(bytes);
            isClosed = readOnce();
        }
        EXPECT_EQ(isClosed, !hasFrames);
        EXPECT_EQ(queue.takeSignOfLife(), hasFrames);
    }
}

TEST_F(RingTest, CloseAndErrorEndTheReadsAndKeepWhatHasCome) {
    feed(frameOf("1=a"));
    EXPECT_FALSE(queue.sawEndOfStream());
    EXPECT_FALSE(readOnce());
    EXPECT_FALSE(queue.sawEndOfStream()) << "a socket without bytes hasn't ended";
    socket.hangUp();
    EXPECT_FALSE(readOnce());
    EXPECT_TRUE(queue.sawEndOfStream());
    EXPECT_EQ(popAll(), 1U);
    queue.reset();
    EXPECT_FALSE(queue.sawEndOfStream());
    EXPECT_FALSE(queue.readFromSocketThenWriteToQueue(-1, nullptr, 1.0));
    EXPECT_TRUE(queue.sawEndOfStream());
}

TEST_F(CompressedTest, InflatesIntoTheRing) {
    socket.write("abc");
    EXPECT_FALSE(readOnce());
    popAll();
    EXPECT_EQ(handler.frames,
              (Frames{Expander::frameFor('a'), Expander::frameFor('b'), Expander::frameFor('c')}));
    EXPECT_EQ(queue.statistics().in.m_compressed_bytes_in.get(), 3U);
    EXPECT_FALSE(queue.hasInputLeft());
    EXPECT_FALSE(readOnce()) << "nothing to read is no error";
    socket.write("d!");
    EXPECT_TRUE(readOnce()) << "a corrupt stream is worth nothing";
}

TEST_F(CompressedTest, CloseAndAMissingParserEndTheConnection) {
    EXPECT_TRUE(queue.readFromSocketThenWriteToQueue(socket.fd(), nullptr, 1.0));
    EXPECT_FALSE(readOnce());
    socket.hangUp();
    EXPECT_TRUE(readOnce());
}

TEST_F(CompressedTest, OutputGoesOnBehindTheEndOfTheRing) {
    for (int round = 0; round < 8; ++round) {
        socket.write(std::string(700, 'x'));
        ASSERT_FALSE(readOnce());
        ASSERT_FALSE(queue.hasInputLeft())
            << "the part behind the ring's end must not wait for another event";
        popAll();
    }
    EXPECT_EQ(handler.frames.size(), 5600U);
    EXPECT_EQ(std::count(handler.frames.begin(), handler.frames.end(), Expander::frameFor('x')), 5600);
}

TEST_F(CompressedTest, InputThatFindsNoRoomWaitsWithoutAReset) {
    socket.write(std::string(6000, 'x')); // more than ring and input together hold
    EXPECT_FALSE(readOnce());
    for (int tick = 0; tick < 3; ++tick) {
        EXPECT_TRUE(queue.hasInputLeft());
        EXPECT_FALSE(goOn()) << "the ring is still full: no reason to close";
    }
    EXPECT_FALSE(drain());
    EXPECT_EQ(handler.frames.size(), 6000U);
}

TEST_F(CompressedTest, FullRingResetsTheConnectionOnTheNextRead) {
    socket.write(std::string(1100, 'x'));
    EXPECT_FALSE(readOnce());
    socket.write("y");
    EXPECT_TRUE(readOnce());
    EXPECT_TRUE(queue.hasInputLeft());
    queue.reset();
    EXPECT_FALSE(queue.hasInputLeft());
}

TEST_F(CompressedTest, WhatCameBeforeACloseIsStillDelivered) {
    socket.write(std::string(1500, 'x'));
    socket.hangUp();
    EXPECT_FALSE(readOnce());
    EXPECT_TRUE(drain());
    popAll();
    EXPECT_EQ(handler.frames.size(), 1500U);
}

TEST_F(CompressedTest, AFewBytesThatInflateWithoutEndDoNotHoldTheThread) {
    parser = makeExpander(1 << 20);
    for (int i = 0; i < 4; ++i)
        socket.write(std::string(50000, 'x'));
    // With a consumer that keeps up the ring alone wouldn't stop it.
    queue.setQueueHandler(nullptr);
    std::atomic<bool> done{false};
    std::thread consumer([&] {
        while (!done)
            queue.PopElement();
    });
    EXPECT_FALSE(readOnce());
    done = true;
    consumer.join();
    EXPECT_TRUE(queue.hasInputLeft());
    EXPECT_LE(queue.statistics().in.m_bytes_in.get(), 18000000U);
}

TEST_F(CompressedTest, RealStreamsComeOutAsTheyWentInAndCorruptOnesEnd) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    kvnparse_test::TestMap map;
    for (const int level : {0, 1, 6, 9}) {
        parser = KVNAPI::StreamParser::alloc("zkvn", &map, 0x40000);
        ASSERT_NE(parser, nullptr) << tp::te_geterror();
        queue.reset();
        handler.frames.clear();
        kvnparse_test::Deflater deflater(level);
        Frames sent;
        std::string wire;
        for (int i = 0; i < 4000; ++i) {
            sent.push_back(frameOf(std::to_string(i) + "=" + std::string(random() % 900, 'v')));
            // Flushed here and there, and in the end.
            wire += deflater(sent.back(), i == 3999 || random() % 4 == 0 ? Z_SYNC_FLUSH : Z_NO_FLUSH);
        }
        for (size_t at = 0; at < wire.size();) {
            const size_t part = std::min<size_t>(1 + random() % 20000, wire.size() - at);
            socket.write(std::string_view(wire).substr(at, part));
            at += part;
            ASSERT_FALSE(readOnce());
            ASSERT_FALSE(drain());
        }
        ASSERT_EQ(handler.frames.size(), sent.size()) << "level " << level;
        EXPECT_TRUE(handler.frames == sent) << "level " << level;
        EXPECT_EQ(queue.statistics().in.cum_dropped_bytes.get(), 0U);
    }
    socket.write(std::string(100, '\xff'));
    EXPECT_TRUE(readOnce());
}
