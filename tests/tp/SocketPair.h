#pragma once

#include <string_view>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

/// Two connected sockets: what is tested works at `fd()`, the test at the other end.
class SocketPair {
public:
    explicit SocketPair(int flags = 0) {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0, m_ends), 0);
    }
    ~SocketPair() {
        hangUp();
        ::close(m_ends[0]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    [[nodiscard]] int fd() const { return m_ends[0]; }
    [[nodiscard]] int peer() const { return m_ends[1]; }
    void write(std::string_view bytes) const {
        ASSERT_EQ(::send(m_ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void hangUp() {
        if (m_ends[1] >= 0)
            ::close(m_ends[1]);
        m_ends[1] = -1;
    }

private:
    int m_ends[2] = {-1, -1};
};
