#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "kvnparse/ParserTestKit.h"
#include "receive/FrameHandler.h"
#include "receive/Queue.h"
#include "tp/SocketPair.h"

namespace tivra_internal {

using kvnparse_test::frameOf;

/// Keeps what a queue delivers: the frames, and where in memory they lay.
class RecordingHandler : public FrameHandler {
public:
    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) override {
        frames.emplace_back(buf, len);
        places.push_back(buf);
        ++*netMsgs;
        return failures;
    }
    void reset() override { ++resets; }

    std::vector<std::string> frames;
    std::vector<const char*> places;
    unsigned failures = 0;
    int resets = 0;
};

/// A queue of the smallest size with a recording consumer, fed through a socket.
class RingTest : public testing::Test {
protected:
    static constexpr std::size_t kRing = 1048576;
    static constexpr std::size_t kChunk = 65536;

    explicit RingTest(bool isCompressed = false) : queue(1, isCompressed, nullptr, 70) {
        queue.setQueueHandler(&handler);
    }

    [[nodiscard]] bool readOnce() { return queue.readFromSocketThenWriteToQueue(socket.fd(), nullptr, 1.0); }

    /// Sends the bytes and has them read, whatever the ring's end cuts.
    void feed(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::string_view chunk = bytes.substr(0, kChunk);
            socket.write(chunk);
            // The second read takes what the end of the ring has kept out.
            EXPECT_FALSE(readOnce());
            EXPECT_FALSE(readOnce());
            m_position = (m_position + chunk.size()) % kRing;
            bytes.remove_prefix(chunk.size());
        }
    }

    std::size_t popAll() {
        std::size_t delivered = 0;
        while (!queue.isEmpty())
            delivered += queue.PopElement() ? 1U : 0U;
        return delivered;
    }

    /// Moves all pointers of the ring to `distance` bytes in front of its end.
    void goToEnd(std::size_t distance) {
        std::size_t left = (2 * kRing - distance - m_position) % kRing;
        if (left < 7)
            left += kRing;
        while (left > 0) {
            const std::size_t size = left > 2 * kChunk ? kChunk : left > kChunk ? left / 2 : left;
            feed(frameOf(std::string(size - 7, 'f')));
            popAll();
            left -= size;
        }
        handler.frames.clear();
        handler.places.clear();
    }

    /// The ring begins anew.
    void reset() {
        queue.reset();
        m_position = 0;
    }

    [[nodiscard]] uint64_t droppedIn() const { return queue.statistics().in.cum_dropped_bytes.get(); }
    [[nodiscard]] uint64_t droppedOut() const { return queue.statistics().out.cum_out_dropped_bytes.get(); }

    SocketPair socket{SOCK_NONBLOCK};
    RecordingHandler handler;
    Queue queue;

private:
    std::size_t m_position = 0; ///< of the next byte in the ring
};

} // namespace tivra_internal
