#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "receive/FrameHandler.h"
#include "receive/Queue.h"

namespace tivra_internal {

inline std::string makeFrame(std::string_view body) {
    const auto length = static_cast<uint32_t>(body.size());
    std::string frame("\x04\x20", 2);
    for (int shift = 24; shift >= 0; shift -= 8)
        frame += static_cast<char>(length >> shift & 0xFFU);
    frame += body;
    frame += '\x03';
    return frame;
}

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

/// A pair of connected sockets: tests write at one end, a queue reads at the other without blocking.
class SocketPair {
public:
    SocketPair() {
        int fds[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0)
            ADD_FAILURE() << "socketpair";
        reader = fds[0];
        m_writer = fds[1];
        ::fcntl(reader, F_SETFL, O_NONBLOCK);
    }
    ~SocketPair() {
        closeWriter();
        ::close(reader);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    void write(std::string_view bytes) const {
        ASSERT_EQ(::write(m_writer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void closeWriter() {
        if (m_writer >= 0)
            ::close(m_writer);
        m_writer = -1;
    }

    int reader = -1;

private:
    int m_writer = -1;
};

/// A queue of the smallest size with a recording consumer, fed through a socket.
class RingTest : public testing::Test {
protected:
    static constexpr size_t kRing = 1048576;
    static constexpr size_t kChunk = 65536;

    RingTest() { queue.setQueueHandler(&handler); }

    [[nodiscard]] bool readOnce() {
        return queue.readFromSocketThenWriteToQueue(socket.reader, nullptr, 1.0);
    }

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

    size_t popAll() {
        size_t delivered = 0;
        while (!queue.isEmpty())
            delivered += queue.PopElement() ? 1U : 0U;
        return delivered;
    }

    /// Moves all pointers of the ring to `distance` bytes in front of its end.
    void goToEnd(size_t distance) {
        size_t left = (2 * kRing - distance - m_position) % kRing;
        if (left < 7)
            left += kRing;
        while (left > 0) {
            const size_t size = left > 2 * kChunk ? kChunk : left > kChunk ? left / 2 : left;
            feed(makeFrame(std::string(size - 7, 'f')));
            popAll();
            left -= size;
        }
        handler.frames.clear();
        handler.places.clear();
    }

    [[nodiscard]] uint64_t droppedIn() const { return queue.statistics().in.cum_dropped_bytes.get(); }
    [[nodiscard]] uint64_t droppedOut() const { return queue.statistics().out.cum_out_dropped_bytes.get(); }

    SocketPair socket;
    RecordingHandler handler;
    Queue queue{1, false, nullptr, 70};

private:
    size_t m_position = 0; ///< of the next byte in the ring
};

} // namespace tivra_internal
