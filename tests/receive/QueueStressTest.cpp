#include <atomic>
#include <random>
#include <string>
#include <thread>

#include "RingFixture.h"

using namespace tivra_internal;

namespace {

/// Makes a stream of frames and of garbage that holds no frame.
class StreamSource {
public:
    explicit StreamSource(uint32_t seed) : m_random(seed) {}

    std::string next() {
        if (pick(20) == 0) {
            const std::string garbage = makeGarbage();
            garbageBytes += garbage.size();
            return garbage;
        }
        // The number of the frame, and one letter over and over.
        std::string body = std::to_string(++frames) + "=";
        body.append(pick(50) == 0 ? pick(60000) : pick(300), static_cast<char>('a' + pick(26)));
        return frameOf(body);
    }

    size_t pick(size_t bound) { return m_random() % bound; }

    uint64_t frames = 0;
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
};

/// Looks whether the frames come whole and in order.
class Checker : public FrameHandler {
public:
    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t*) override {
        const std::string_view body(buf + 6, len - 7);
        const size_t equals = body.find('=');
        const uint64_t number = std::stoull(std::string(body.substr(0, equals)));
        isGood = isGood && number == last + 1 && buf[len - 1] == '\x03' &&
                 body.find_first_not_of(body.back(), equals + 1) == std::string_view::npos;
        last = number;
        taken.fetch_add(len, std::memory_order_release);
        return 0;
    }
    void reset() override {}

    bool isGood = true;
    uint64_t last = 0;
    std::atomic<uint64_t> taken{0};
};

} // namespace

// A producer and a consumer thread; the sender never has more under way than the ring holds.
TEST_F(RingTest, ProducerAndConsumerThreadsLoseNothing) {
    Checker checker;
    queue.setQueueHandler(&checker);

    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    StreamSource source(seed);
    std::atomic<bool> done{false};
    std::thread producer([&] {
        uint64_t sent = 0; // bytes of whole frames
        while (sent < 20 * kRing) {
            const uint64_t garbageBefore = source.garbageBytes;
            const std::string piece = source.next();
            sent += source.garbageBytes == garbageBefore ? piece.size() : 0;
            while (sent - checker.taken.load(std::memory_order_acquire) > kRing / 2)
                std::this_thread::yield();
            for (size_t at = 0; at < piece.size();) {
                const size_t part = 1 + source.pick(piece.size() - at);
                feed(std::string_view(piece).substr(at, part));
                at += part;
            }
        }
        // What still lies behind garbage comes out with one more frame.
        feed(frameOf(std::to_string(++source.frames) + "="));
        done = true;
    });
    while (!done || !queue.isEmpty())
        queue.PopElement();
    producer.join();
    popAll();
    EXPECT_TRUE(checker.isGood);
    EXPECT_EQ(checker.last, source.frames);
    EXPECT_EQ(queue.statistics().out.m_msgs_out.get(), source.frames);
    EXPECT_EQ(droppedIn(), source.garbageBytes);
    queue.setQueueHandler(nullptr);
}
