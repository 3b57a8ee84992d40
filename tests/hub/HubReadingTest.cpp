// Bytes on their way in: split and broken frames before ready, the hand-over to the queue, reads that are
// held back.
#include <sys/ioctl.h>

#include <zlib.h>

#include <chrono>
#include <thread>

#include "hub/HubFixture.h"
#include "kvnparse/Deflater.h"
#include "receive/FrameHandler.h"
#include <tivra_testkit/Inflater.h>

namespace tivra_internal {
namespace {

using testing::Contains;
using testing::StartsWith;

class HubReadingTest : public HubFixture {
protected:
    /// Sends bytes and lets the client take them all.
    void feed(std::string_view bytes) {
        static constexpr std::size_t kBlock = 50'000; // what a socket holds for sure
        for (; !bytes.empty() && client->getFd() >= 0; bytes.remove_prefix(std::min(kBlock, bytes.size()))) {
            hub.sendRaw(bytes.substr(0, kBlock));
            do
                serve();
            while (bytesWaiting() > 0);
        }
    }
    int bytesWaiting() {
        int waiting = 0;
        return client->getFd() >= 0 && ::ioctl(client->getFd(), FIONREAD, &waiting) == 0 ? waiting : 0;
    }
    /// An answer is due, and the queue nearly full: more bytes wait in the socket.
    void holdReads() {
        const std::string data = frameOf("4=558|5=IBM|1=" + std::string(100'000, 'x'));
        client->incrQueryCount();
        for (int i = 0; i < 8; ++i)
            feed(data);
        ASSERT_TRUE(client->getResponseQueue()->readsSuspended());
        hub.sendRaw(data);
        ASSERT_TRUE(waitReadable(client->getFd()));
        client->readableEvent(tp::Clock::now());
    }
    uint64_t framesInQueue() {
        client->calcStats(0.0);
        client->getResponseQueue()->printStats(true, true, 0.0);
        return client->getResponseQueue()->statistics().getMsgsIn();
    }
};

TEST_F(HubReadingTest, BrokenBytesSuspendWithTheirReasonAndOnlyThisConnection) {
    const std::string frame = "Error framing response from HUB: ";
    const std::string parse = "Error parsing response from HUB: ";
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP/1.1 400 Bad Request\r\n\r\n", frame},
        {std::string("\x04\x20\x7f\xff\xff\xff", 6) + std::string(0x40000, '5'), frame}, // too long
        {frameOf("abc=1"), parse},
        {frameOf("5026=") + frameOf("=") + frameOf("5026=1|5001=0"), parse},
    };
    for (const auto& [bytes, reason] : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 40)));
        makeClient();
        connectAndLogin();
        feed(bytes);
        EXPECT_EQ(client->getFd(), -1);
        EXPECT_FALSE(client->isLoggedIn()) << "nothing after a broken frame is obeyed";
        EXPECT_THAT(client->getSuspendReason(), StartsWith(reason));
        comeUp(); // nothing of it is left on the next connection
        client->closeConnection();
    }
}

TEST_F(HubReadingTest, TheEndOfTheStreamBeforeReadyClosesTheConnection) {
    for (const bool hard : {false, true}) {
        makeClient();
        connectAndLogin();
        hub.readRequest();
        if (hard)
            hub.reset();
        else
            hub.drop();
        LogCapture log;
        serve();
        EXPECT_EQ(client->getFd(), -1);
        EXPECT_FALSE(client->isSuspended()) << "it is dialled again";
        EXPECT_THAT(log.lines(),
                    Contains(StartsWith(
                        "INFO: === Socket Close Detected on Read - Connection will be Reset ===; fd=")));
    }
}

TEST_F(HubReadingTest, FramesSplitAtEveryByteEndTheHandshakeAndBeginTheStream) {
    const std::string data = frameOf("4=558|5=IBM|10=1.5");
    const std::string end = frameOf("5026=13|5001=0");
    const std::string stream = end + data + data + data;
    for (std::size_t cut = 1; cut <= stream.size(); ++cut) {
        makeClient();
        session.first = client.get();
        loginAndConverse("Subscribe .HUB.STATUS", {});
        feed(std::string_view(stream).substr(0, cut));
        ASSERT_EQ(client->isReady(), cut >= end.size()) << cut;
        if (cut < stream.size())
            feed(std::string_view(stream).substr(cut));
        ASSERT_EQ(framesInQueue(), 3U) << cut;
    }
}

TEST_F(HubReadingTest, HalfAFrameOfALostConnectionIsNotMixedWithTheNext) {
    const std::string data = frameOf("4=558|5=IBM|10=1.5");
    makeClient();
    comeUp();
    feed(std::string_view(data).substr(0, 15));
    client->closeConnection();
    comeUp();
    feed(data);
    EXPECT_EQ(framesInQueue(), 1U);
    EXPECT_EQ(client->getResponseQueue()->statistics().getDroppedBytes(), 0U);
}

TEST_F(HubReadingTest, AReadyStreamThatEndsIsLeftToTheSupervisorAndSpinsNoReactor) {
    makeClient();
    comeUp();
    client->setHBSeen(false);
    feed(frameOf("4=558|5=IBM|10=1.5"));
    EXPECT_TRUE(client->getHBSeen());
    hub.drop();
    serve();
    EXPECT_FALSE(client->hasSocket()) << "nothing is watched that would be ready for ever";
    EXPECT_GE(client->getFd(), 0);
    EXPECT_FALSE(client->isValidConnection());
    EXPECT_EQ(framesInQueue(), 1U) << "what has come is still delivered";
}

TEST_F(HubReadingTest, RoomInTheQueueEndsAHoldWithoutTheTick) {
    makeClient();
    comeUp();
    holdReads();
    std::thread loop([this] { reactor->begin(); });
    Queue& queue = *client->getResponseQueue();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMilliseconds);
    while (bytesWaiting() > 0 && std::chrono::steady_clock::now() < deadline)
        (void)queue.PopElement();
    EXPECT_EQ(bytesWaiting(), 0);
    reactor->tp::EventReactor::end();
    loop.join();
}

TEST_F(HubReadingTest, HeldReadsAreTriedByTheTickAndWatchedAgainOnceThereIsRoom) {
    makeClient();
    comeUp();
    Queue& queue = *client->getResponseQueue();
    holdReads();
    EXPECT_FALSE(client->hasSocket()) << "a hang-up would call for attention without end";
    client->setHBSeen(false);
    client->twentyFiveMsTick(tp::Clock::now());
    EXPECT_TRUE(client->getHBSeen()) << "bytes wait, so the hub lives";
    EXPECT_GT(bytesWaiting(), 0) << "the refused read takes nothing";

    client->decrQueryCount();
    ASSERT_FALSE(queue.readsSuspended());
    client->twentyFiveMsTick(tp::Clock::now());
    client->readableEvent(tp::Clock::now());
    EXPECT_EQ(bytesWaiting(), 0);
}

/// A hub whose side is one zlib stream, with the frames that reach the queue.
class CompressedReadingTest : public HubReadingTest, public FrameHandler {
protected:
    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t*) override {
        frames.emplace_back(buf, len);
        return 0;
    }
    void reset() override {}

    void answer(std::string_view body) override {
        hub.sendRaw(deflate(frameOf(body)));
        serve();
    }
    std::string deflate(std::string_view plain, int flush = Z_SYNC_FLUSH) {
        std::string bytes = (*m_deflater)(plain, flush);
        wire += bytes;
        return bytes;
    }
    /// A new client on a new stream, which has come up as far as the answers go.
    void begin(const Answers& answers) {
        makeClient({.compression = true});
        session.first = client.get();
        session.down = 0;
        queue().setQueueHandler(this);
        m_deflater = std::make_unique<kvnparse_test::Deflater>(9);
        wire.clear();
        frames.clear();
        loginAndConverse(answers);
    }
    Answers withoutLastAnswer() {
        Answers answers = loneHub();
        answers["Subscribe .HUB.STATUS"] = {};
        return answers;
    }
    Queue& queue() { return *client->getResponseQueue(); }
    void popAll() {
        while (!queue().isEmpty())
            (void)queue().PopElement();
    }

    std::string wire; ///< of this connection so far
    std::vector<std::string> frames;

private:
    std::unique_ptr<kvnparse_test::Deflater> m_deflater;
};

/// What comes in one read with the last answer is dropped. All after that is delivered once, wherever the
/// stream is cut and however it was flushed.
TEST_F(CompressedReadingTest, OnlyWhatCameWithTheLastAnswerIsMissingFromTheRing) {
    const std::string end = frameOf("5026=13|5001=0");
    for (const int flush : {Z_SYNC_FLUSH, Z_NO_FLUSH}) {
        for (std::size_t cut = 1, size = 2; cut < size; ++cut) {
            begin(withoutLastAnswer());
            ASSERT_FALSE(client->isReady());
            tivra_testkit::Inflater inflater;
            static_cast<void>(inflater(wire));
            std::vector<std::string> sent;
            std::string bytes = deflate(end, flush);
            for (int i = 0; i < 5; ++i) {
                sent.push_back(frameOf("4=558|5=IBM|10=" + std::to_string(i)));
                bytes += deflate(sent.back(), flush);
            }
            bytes += deflate("");
            size = bytes.size();

            const std::size_t seen = inflater(std::string_view(bytes).substr(0, cut)).size();
            feed(std::string_view(bytes).substr(0, cut));
            ASSERT_EQ(client->isReady(), seen >= end.size()) << cut;
            feed(std::string_view(bytes).substr(cut));
            ASSERT_TRUE(client->isReady()) << cut;
            sent.push_back(frameOf("4=558|5=IBM|10=last"));
            feed(deflate(sent.back()));
            popAll();

            const std::size_t gone = seen >= end.size() ? seen - end.size() : 5 * sent.front().size();
            std::vector<std::string> expected;
            for (std::size_t i = (gone + sent.front().size() - 1) / sent.front().size(); i < sent.size(); ++i)
                expected.push_back(sent[i]);
            ASSERT_EQ(frames, expected) << cut << " flush " << flush;
        }
    }
}

TEST_F(CompressedReadingTest, AFaultAfterTheLastAnswerCostsTheConnectionAtMost) {
    const std::string end = frameOf("5026=13|5001=0");
    begin(withoutLastAnswer());
    std::string more = frameOf("abc=1");
    while (more.size() < 1'000'000)
        more += frameOf("4=558|5=IBM|10=1");
    feed(deflate(end + more));
    EXPECT_TRUE(client->isReady()) << "frames that are dropped need not be read";
    const std::string last = frameOf("4=558|5=IBM|10=last");
    feed(deflate(last));
    popAll();
    EXPECT_EQ(frames, std::vector<std::string>{last});
    begin(withoutLastAnswer());
    // The fault comes in a later round of the same block.
    feed(deflate(end + std::string(200'000, 'x')) + std::string(100, '\xff'));
    EXPECT_EQ(client->getFd(), -1);
    EXPECT_FALSE(client->isSuspended()) << "it is dialled again, as after a fault in the next read";
    EXPECT_EQ(session.down, 1);
}

TEST_F(CompressedReadingTest, TheTickGoesOnWithInputThatFoundNoRoom) {
    std::vector<std::string> sent; // four times what the ring holds, in a few thousand bytes
    std::string plain;
    for (int i = 0; i < 40; ++i) {
        sent.push_back(frameOf("4=558|5=IBM|1=" + std::to_string(i) + std::string(100'000, 'x')));
        plain += sent.back();
    }
    for (const bool isCorrupt : {false, true}) {
        begin(loneHub());
        ASSERT_TRUE(client->isReady());
        hub.sendRaw(deflate(plain) + (isCorrupt ? std::string(100, '\xff') : std::string()));
        serve();
        for (int tick = 0; tick < 3; ++tick)
            client->twentyFiveMsTick(tp::Clock::now());
        ASSERT_TRUE(queue().hasInputLeft());
        ASSERT_GE(client->getFd(), 0) << "what waits is no reason to close";
        for (int turn = 0; turn < 20 && client->getFd() >= 0; ++turn) {
            popAll();
            client->twentyFiveMsTick(tp::Clock::now());
        }
        popAll();
        EXPECT_EQ(client->getFd() < 0, isCorrupt);
        EXPECT_EQ(session.down, isCorrupt ? 1 : 0);
        ASSERT_LE(frames.size(), sent.size());
        EXPECT_TRUE(std::equal(frames.begin(), frames.end(), sent.begin()));
        EXPECT_EQ(frames.size() == sent.size(), !isCorrupt);
        EXPECT_EQ(queue().statistics().in.cum_dropped_bytes.get(), 0U);
    }
}

/// A few bytes that hold very many messages must not keep the thread from its other hubs.
TEST_F(CompressedReadingTest, EndlessMessagesOfAHandshakeAreTakenPieceByPiece) {
    std::string plain;
    for (int i = 0; i < 25'000; ++i)
        plain += frameOf("4=922|5=.HUB.STATUS");
    begin(withoutLastAnswer());
    const std::string bytes = deflate(plain);
    ASSERT_LT(bytes.size(), 10'000U);
    hub.sendRaw(bytes);
    serve();
    hub.sendRaw(deflate(frameOf("5026=13|5001=0")));
    serve();
    EXPECT_FALSE(client->isReady()) << "two goes are not enough";
    client->twentyFiveMsTick(tp::Clock::now());
    EXPECT_TRUE(client->isReady());

    begin(withoutLastAnswer());
    hub.sendRaw(deflate(plain));
    serve();
    client->closeConnection();
    client->twentyFiveMsTick(tp::Clock::now());
    EXPECT_FALSE(client->isSuspended()) << "nothing is left of a connection that has ended";
}

/// Among them bytes without end that hold no frame, or begin one.
TEST_F(CompressedReadingTest, AHandshakeThatCantGoOnIsGivenUpWithItsReason) {
    const std::string zeros(32 << 20, '\0');
    const std::string record = frameOf("4=922|5=.HUB.STATUS");
    const struct {
        std::string plain;
        int flush;
        std::size_t cutOff;
        std::string more; ///< past the compression
        const char* reason;
    } cases[] = {
        {record, Z_SYNC_FLUSH, 0, "\xff\xff", "zlib error (-3("},
        {record, Z_FINISH, 4, "abcd", "zlib error (-3("},                         // a wrong sum
        {record, Z_FINISH, 0, std::string(0x40000 + 10, 'x'), "Block too large"}, // nothing more is taken out
        {zeros, Z_SYNC_FLUSH, 0, "", ""},
        {frameOf(std::string(100'000, 'x')).substr(0, 50) + zeros, Z_SYNC_FLUSH, 0, "", ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.reason);
        begin(withoutLastAnswer());
        std::string bytes = deflate(row.plain, row.flush);
        ASSERT_LT(bytes.size(), 40'000U);
        bytes.resize(bytes.size() - row.cutOff);
        feed(bytes);
        feed(row.more);
        EXPECT_EQ(client->getFd(), -1);
        EXPECT_THAT(client->getSuspendReason(),
                    StartsWith(std::string("Error decompressing/parsing response from HUB: ") + row.reason));
    }
}

} // namespace
} // namespace tivra_internal
