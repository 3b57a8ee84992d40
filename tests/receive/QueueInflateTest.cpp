// Compressed streams of a live connection that go wrong, and those that hold more than they seem.
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <tp/te_error.h>

#include "RingFixture.h"
#include "kvnparse/Deflater.h"
#include "kvnparse/StreamParser.h"
#include <tivra_testkit/Inflater.h>

using namespace tivra_internal;
using kvnparse_test::Deflater;

namespace {

using Frames = std::vector<std::string>;

/// A stream of frames as a hub compresses it.
struct Stream {
    Frames frames;
    std::string wire;

    /// How many frames are whole in the first bytes of it.
    [[nodiscard]] std::size_t wholeIn(std::size_t bytes) const {
        std::size_t plain = tivra_testkit::Inflater()(std::string_view(wire).substr(0, bytes)).size();
        std::size_t count = 0;
        for (; count < frames.size() && frames[count].size() <= plain; ++count)
            plain -= frames[count].size();
        return count;
    }
};

class InflateTest : public RingTest {
protected:
    InflateTest() : RingTest(true) { makeParser(kInput); }

    void makeParser(int inputSize) {
        parser = KVNAPI::StreamParser::alloc("zkvn", &m_map, inputSize);
        if (parser == nullptr)
            throw std::runtime_error(tp::te_geterror());
    }
    [[nodiscard]] bool readOnce() {
        return queue.readFromSocketThenWriteToQueue(socket.fd(), parser.get(), 1.0);
    }
    [[nodiscard]] int bytesWaiting() const {
        int waiting = 0;
        return ::ioctl(socket.fd(), FIONREAD, &waiting) == 0 ? waiting : 0;
    }
    /// One cycle of the hub thread: an event when bytes wait, and the tick.
    [[nodiscard]] bool turn() {
        return (bytesWaiting() > 0 && readOnce()) || queue.continueInflating(socket.fd(), parser.get(), 1.0);
    }
    /// Takes all that has been sent; true when the connection has to be closed.
    [[nodiscard]] bool takeSent() {
        for (int turns = 0; bytesWaiting() > 0 || queue.hasInputLeft(); ++turns) {
            if (turn())
                return true;
            popAll();
            if (turns == kManyTurns) {
                ADD_FAILURE() << "there is no end of it";
                return true;
            }
        }
        return false;
    }
    /// Sends bytes in pieces and has all of each taken; true when the connection has to be closed.
    [[nodiscard]] bool take(std::string_view bytes) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size()))) {
            socket.write(bytes.substr(0, kPiece));
            if (takeSent())
                return true;
        }
        return false;
    }
    /// Sends that many frames of a thousand bytes in one piece.
    void sendFrames(std::size_t count) {
        const std::string frame = frameOf(std::string(993, 'x'));
        std::string frames;
        for (; count > 0; --count)
            frames += frame;
        socket.write(m_deflater(frames));
    }
    /// As a connection that is closed and made anew.
    void reconnect() {
        char left[4096];
        while (::recv(socket.fd(), left, sizeof left, MSG_DONTWAIT) > 0)
            continue;
        queue.reset();
        parser->reset();
        handler.frames.clear();
    }

    Stream makeStream(std::mt19937& random, int flush = Z_SYNC_FLUSH) const {
        Stream stream;
        Deflater deflater(static_cast<int>(random() % 10));
        for (std::size_t count = 40 + random() % 40; count > 0; --count) {
            std::string body = std::to_string(count) + "=";
            for (std::size_t length = random() % 600; length > 0; --length)
                body += static_cast<char>('a' + random() % (count % 2 == 0 ? 2 : 26));
            stream.frames.push_back(frameOf(body));
            stream.wire += deflater(stream.frames.back(), count == 1          ? flush
                                                          : random() % 3 == 0 ? Z_SYNC_FLUSH
                                                                              : Z_NO_FLUSH);
        }
        return stream;
    }
    /// What has been delivered begins as what was sent.
    void expectPrefix(const Frames& sent, std::size_t count) const {
        ASSERT_GE(handler.frames.size(), count);
        EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(count),
                               handler.frames.begin()));
    }

    static constexpr int kInput = 8192;
    static constexpr std::size_t kPiece = 2048;
    static constexpr int kManyTurns = 1000;
    std::unique_ptr<KVNAPI::StreamParser> parser;

private:
    kvnparse_test::TestMap m_map;
    Deflater m_deflater{9};
};

enum class Fault { BitFlip, Gap, DoubledBlock, ForeignDictionary, Truncation };

std::ostream& operator<<(std::ostream& out, Fault fault) {
    static const char* const names[] = {"BitFlip", "Gap", "DoubledBlock", "ForeignDictionary", "Truncation"};
    return out << names[static_cast<std::size_t>(fault)];
}

class FaultyStream : public InflateTest, public testing::WithParamInterface<Fault> {
protected:
    /// What comes in place of the bytes from `at` on.
    static std::string damaged(const std::string& wire, std::size_t at, std::mt19937& random) {
        const std::size_t some = std::min<std::size_t>(1 + random() % 200, std::max(at, wire.size() - at));
        std::string rest = wire.substr(at);
        switch (GetParam()) {
        case Fault::BitFlip:
            rest[0] = static_cast<char>(rest[0] ^ 1 << random() % 8);
            break;
        case Fault::Gap:
            rest.erase(0, some);
            break;
        case Fault::DoubledBlock:
            rest = wire.substr(at - std::min(at, some), some) + rest;
            break;
        case Fault::ForeignDictionary:
            rest = std::string("\x78\xbb\1\2\3\4", 6) + rest;
            break;
        case Fault::Truncation:
            rest.clear();
            break;
        }
        return rest;
    }
};

} // namespace

/// Nothing before the fault is lost or changed, nothing hangs, and the next connection is a good one. A fault
/// that still makes a stream can't be noticed by it: then only the frames are wrong.
TEST_P(FaultyStream, KeepsWhatCameBeforeAndIsOverWithTheConnection) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    int noticed = 0;
    for (int round = 0; round < 40; ++round) {
        const Stream stream = makeStream(random);
        const std::size_t at = round == 0 ? 0 : random() % stream.wire.size();
        ASSERT_FALSE(take(std::string_view(stream.wire).substr(0, at)));
        const std::size_t before = stream.wholeIn(at);
        ASSERT_EQ(handler.frames.size(), before) << at;
        noticed += take(damaged(stream.wire, at, random)) ? 1 : 0;
        popAll();
        expectPrefix(stream.frames, before);

        reconnect();
        const Stream next = makeStream(random);
        ASSERT_FALSE(take(next.wire)) << "round " << round << ": " << tp::te_geterror();
        ASSERT_TRUE(handler.frames == next.frames) << "round " << round << " at " << at;
        reconnect();
    }
    EXPECT_EQ(noticed > 0, GetParam() != Fault::Truncation);
}

INSTANTIATE_TEST_SUITE_P(Queue, FaultyStream,
                         testing::Values(Fault::BitFlip, Fault::Gap, Fault::DoubledBlock,
                                         Fault::ForeignDictionary, Fault::Truncation),
                         testing::PrintToStringParamName());

/// A stream that ends is not entered again: the connection ends as soon as its input is full.
TEST_F(InflateTest, NothingAfterTheEndOfAStreamIsReadAndTheConnectionEnds) {
    std::mt19937 random(5);
    const Stream stream = makeStream(random, Z_FINISH), second = makeStream(random);
    ASSERT_FALSE(take(stream.wire));
    EXPECT_TRUE(handler.frames == stream.frames);
    EXPECT_TRUE(take(second.wire + std::string(kInput, 'x')));
    popAll();
    EXPECT_TRUE(handler.frames == stream.frames);
    reconnect();
    EXPECT_FALSE(take(second.wire));
    EXPECT_TRUE(handler.frames == second.frames);
    // A wrong sum at the end is a fault as well.
    reconnect();
    std::string wrongSum = stream.wire;
    wrongSum.back() ^= 1;
    EXPECT_TRUE(take(wrongSum));
}

TEST_F(InflateTest, CloseAndAMissingParserEndTheConnection) {
    EXPECT_TRUE(queue.readFromSocketThenWriteToQueue(socket.fd(), nullptr, 1.0));
    EXPECT_FALSE(readOnce()) << "nothing to read is no error";
    socket.hangUp();
    EXPECT_TRUE(readOnce());
}

TEST_F(InflateTest, ARingWithoutTheLeastRoomEndsTheConnectionToTheByte) {
    sendFrames(1);
    for (const std::size_t less : {1U, 0U}) {
        queue.reset();
        const std::string taken(kRing - Queue::MIN_AVAIL_LEN + less, 'x');
        ASSERT_TRUE(queue.writeToQueue(taken.data(), taken.size()));
        EXPECT_EQ(readOnce(), less == 1);
        EXPECT_EQ(bytesWaiting() > 0, less == 1);
    }
}

TEST_F(InflateTest, OutputGoesOnAfterTheEndOfTheRingInTheSameRead) {
    for (int round = 0; round < 8; ++round) {
        sendFrames(700);
        const auto bytes = static_cast<uint64_t>(bytesWaiting());
        const uint64_t before = queue.statistics().in.m_compressed_bytes_in.get();
        ASSERT_FALSE(readOnce());
        ASSERT_FALSE(queue.hasInputLeft()) << "the part after the ring's end must not wait for another event";
        EXPECT_EQ(queue.statistics().in.m_compressed_bytes_in.get() - before, bytes);
        EXPECT_EQ(popAll(), 700U);
    }
}

TEST_F(InflateTest, InputThatFindsNoRoomWaitsAndOnlyAnotherReadOfAFullRingEndsTheConnection) {
    sendFrames(20000); // more than ring and input together hold
    ASSERT_FALSE(readOnce());
    for (int tick = 0; tick < 3; ++tick) {
        EXPECT_TRUE(queue.hasInputLeft());
        EXPECT_FALSE(queue.continueInflating(socket.fd(), parser.get(), 1.0));
    }
    popAll();
    EXPECT_FALSE(takeSent());
    EXPECT_EQ(handler.frames.size(), 20000U);
    sendFrames(20000);
    ASSERT_FALSE(readOnce());
    EXPECT_TRUE(readOnce());
    queue.reset();
    EXPECT_FALSE(queue.hasInputLeft());
}

TEST_F(InflateTest, WhatCameBeforeACloseIsStillDelivered) {
    sendFrames(1500);
    socket.hangUp();
    EXPECT_FALSE(readOnce());
    popAll();
    EXPECT_TRUE(queue.continueInflating(socket.fd(), parser.get(), 1.0));
    popAll();
    EXPECT_EQ(handler.frames.size(), 1500U);
}

TEST_F(InflateTest, AFewBytesThatInflateWithoutEndDoNotHoldTheThread) {
    makeParser(0x40000);
    sendFrames(40'000);
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

/// Few bytes that become very many: each turn inflates as much as the ring holds at most, every byte is
/// accounted for, and what comes after frames arrives. A megabyte without a frame is no hub's stream.
TEST_F(InflateTest, BombsGoThroughTheRingInBoundedSteps) {
    constexpr std::size_t kMegabytes = 12;
    const std::string last = frameOf("1=last");
    std::string frames;
    while (frames.size() < kRing)
        frames += frameOf("1=1");
    const std::string zeros(kRing, '\0');
    const struct {
        const char* what;
        std::string start;
        const std::string& body;
    } bombs[] = {{"no frame", "", zeros},
                 {"inside a frame", frameOf(std::string(Queue::kMaxBody, 'x')).substr(0, 100), zeros},
                 {"endless frames", "", frames}};
    makeParser(0x40000);
    for (const auto& bomb : bombs) {
        SCOPED_TRACE(bomb.what);
        Deflater deflater(9);
        std::string wire = deflater(bomb.start);
        for (std::size_t i = 0; i < kMegabytes; ++i)
            wire += deflater(bomb.body);
        wire += deflater(last);
        ASSERT_LT(wire.size(), 150'000U);
        const auto seen = [this] { return queue.statistics().in.m_bytes_in.get() + droppedIn(); };
        const uint64_t before = seen();
        socket.write(wire);
        bool isClosed = false;
        while (!isClosed && (bytesWaiting() > 0 || queue.hasInputLeft())) {
            const uint64_t previous = seen();
            isClosed = turn();
            ASSERT_LE(seen() - previous, 2 * kRing);
            ASSERT_GT(seen(), previous) << "no progress";
            popAll();
        }
        EXPECT_EQ(isClosed, bomb.body == zeros);
        if (isClosed)
            EXPECT_GE(seen() - before, kRing);
        else
            EXPECT_EQ(handler.frames.size(), kMegabytes * frames.size() / 10 + 1);
        reconnect();
    }
}
