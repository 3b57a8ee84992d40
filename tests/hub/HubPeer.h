#pragma once

#include <netinet/tcp.h>
#include <poll.h>

#include <string>
#include <string_view>

#include "support/Frame.h"
#include "support/Ports.h"

namespace tivra_internal {

/// How long a test waits for what must come.
inline constexpr int kDeadlineMilliseconds = 20'000;

inline bool waitReadable(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, kDeadlineMilliseconds) == 1;
}

using support::frameOf;

/// The hub's side of one connection, driven byte by byte: a listener on a free loopback port and what was
/// accepted.
class HubPeer : public ClosedPort {
public:
    HubPeer() { listen(16); }
    ~HubPeer() { drop(); }
    HubPeer(const HubPeer&) = delete;
    HubPeer& operator=(const HubPeer&) = delete;

    void accept() {
        drop();
        ASSERT_TRUE(waitReadable(m_socket)) << "nobody connects";
        m_fd = ::accept(m_socket, nullptr, nullptr);
        ASSERT_GE(m_fd, 0);
        const int on = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    void drop() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
    /// A reset instead of an orderly end.
    void reset() {
        const linger hard{1, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
        drop();
    }

    void send(std::string_view body) { sendRaw(frameOf(body)); }
    void sendRaw(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            ASSERT_GT(sent, 0);
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    /// Bytes have come; an end of the stream is none.
    bool hasRequest() const {
        char byte = 0;
        return ::recv(m_fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    }
    /// The text of the next request; empty with a failure when none comes or its frame is wrong.
    std::string readRequest() {
        const std::string head = readBytes(6);
        if (head.size() != 6)
            return {};
        std::size_t length = 0;
        for (std::size_t i = 2; i < head.size(); ++i)
            length = length << 8 | static_cast<unsigned char>(head[i]);
        const std::string rest = readBytes(length + 1);
        const std::string text = rest.substr(0, length);
        EXPECT_EQ(head + rest, frameOf(text)) << "a broken frame";
        return text;
    }
    std::string readBytes(std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t got = 0;
        while (got < count && waitReadable(m_fd)) {
            const ssize_t part = ::recv(m_fd, bytes.data() + got, count - got, 0);
            if (part <= 0)
                break;
            got += static_cast<std::size_t>(part);
        }
        EXPECT_EQ(got, count) << "the connection has ended, or no bytes came within the deadline";
        bytes.resize(got);
        return bytes;
    }

private:
    int m_fd = -1;
};

} // namespace tivra_internal
