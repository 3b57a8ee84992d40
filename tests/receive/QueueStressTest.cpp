#include <atomic>
#include <deque>
#include <random>
#include <string>
#include <thread>

#include "RingFixture.h"

using namespace tivra_internal;

namespace {

/// Makes a stream of frames and of garbage that holds no frame, and knows what must come out.
class StreamSource {
public:
    explicit StreamSource(uint32_t seed) : m_random(seed) {}

    std::string next() {
        if (pick(20) == 0) {
            const std::string garbage = makeGarbage();
            garbageBytes += garbage.size();
            return garbage;
        }
        std::string body = std::to_string(++m_number) + "=";
        body.append(pick(50) == 0 ? pick(60000) : pick(300), static_cast<char>('a' + pick(26)));
        expected.push_back(makeFrame(body));
        return expected.back();
    }

    size_t pick(size_t bound) { return m_random() % bound; }

    std::deque<std::string> expected;
    uint64_t garbageBytes = 0;

private:
    std::string makeGarbage() {
        switch (pick(3)) {
        case 0:
            return std::string(1 + pick(40), 'g');
        case 1:
            return std::string(1 + pick(10), '\x04') + std::string(4, '\x7f');
        default:
            return std::string("\x04\x20\x00\x00\x00\x02", 6) + "ab" + std::string(1 + pick(9), 'z');
        }
    }

    std::mt19937 m_random;
    uint64_t m_number = 0;
};

} // namespace

// One thread, any order of reads and pops, the ring many times round.
TEST_F(RingTest, RandomReadsAndPopsDeliverTheStreamInOrder) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    StreamSource source(seed);
    std::string stream;
    size_t inRing = 0;
    for (uint64_t fed = 0; fed < 12 * kRing;) {
        while (stream.size() < kChunk)
            stream += source.next();
        const size_t chunk = 1 + source.pick(source.pick(4) == 0 ? kChunk : 2000);
        feed(stream.substr(0, chunk));
        stream.erase(0, chunk);
        fed += chunk;
        inRing += chunk;
        const size_t pops = inRing > kRing / 2 ? size_t{1} << 20 : source.pick(40);
        for (size_t i = 0; i < pops && !queue.isEmpty(); ++i)
            queue.PopElement();
        if (pops > 40)
            inRing = 0;
        for (const std::string& frame : handler.frames) {
            ASSERT_EQ(frame, source.expected.front());
            source.expected.pop_front();
        }
        handler.frames.clear();
    }
    feed(stream + makeFrame("1=end"));
    popAll();
    ASSERT_EQ(handler.frames.size(), source.expected.size() + 1);
    EXPECT_EQ(droppedIn(), source.garbageBytes);
}

// A producer and a consumer thread; the sender never has more under way than the ring holds.
TEST_F(RingTest, ProducerAndConsumerThreadsLoseNothing) {
    class Checker : public FrameHandler {
    public:
        unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t*) override {
            // The number in front of each body counts up by one.
            const std::string_view body(buf + 6, len - 7);
            const uint64_t number = std::stoull(std::string(body.substr(0, body.find('='))));
            inOrder = inOrder && number == last + 1;
            last = number;
            taken.fetch_add(len, std::memory_order_release);
            return 0;
        }
        void reset() override {}
        bool inOrder = true;
        uint64_t last = 0;
        std::atomic<uint64_t> taken{0};
    } checker;
    queue.setQueueHandler(&checker);

    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::atomic<bool> done{false};
    uint64_t frames = 0;
    std::thread producer([&] {
        StreamSource source(seed);
        uint64_t sent = 0; // bytes of whole frames
        std::string piece;
        while (sent < 20 * kRing) {
            piece = source.next();
            if (!source.expected.empty()) {
                source.expected.clear();
                sent += piece.size();
                ++frames;
            }
            while (sent - checker.taken.load(std::memory_order_acquire) > kRing / 2)
                std::this_thread::yield();
            for (size_t at = 0; at < piece.size();) {
                const size_t part = 1 + source.pick(piece.size() - at);
                feed(std::string_view(piece).substr(at, part));
                at += part;
            }
        }
        // What still lies behind garbage comes out with one more frame.
        feed(makeFrame(std::to_string(++frames) + "=end"));
        done = true;
    });
    while (!done || !queue.isEmpty())
        queue.PopElement();
    producer.join();
    popAll();
    EXPECT_TRUE(checker.inOrder);
    EXPECT_EQ(checker.last, frames);
    EXPECT_EQ(queue.statistics().out.m_msgs_out.get(), frames);
    queue.setQueueHandler(nullptr);
}
