#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

/// A port of the loopback address that is taken and that nobody listens at, so that whoever dials it is
/// refused.
class ClosedPort {
public:
    ClosedPort() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        m_place.sin_family = AF_INET;
        m_place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_place;
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&m_place), length), 0);
        EXPECT_EQ(::getsockname(m_socket, reinterpret_cast<sockaddr*>(&m_place), &length), 0);
    }
    ~ClosedPort() { ::close(m_socket); }
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;

    [[nodiscard]] std::uint16_t port() const { return ntohs(m_place.sin_port); }
    [[nodiscard]] std::string hostString() const { return "127.0.0.1:" + std::to_string(port()); }

protected:
    void listen(int backlog) { EXPECT_EQ(::listen(m_socket, backlog), 0); }

    int m_socket;
    sockaddr_in m_place{};
};

/// A port whose queue of connections is full, so that one more is neither taken nor refused.
class FullPort : public ClosedPort {
public:
    FullPort() {
        listen(0);
        for (int& dialled : m_dialled) {
            dialled = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            static_cast<void>(::connect(dialled, reinterpret_cast<sockaddr*>(&m_place), sizeof m_place));
        }
    }
    ~FullPort() {
        for (const int dialled : m_dialled)
            ::close(dialled);
    }
    FullPort(const FullPort&) = delete;
    FullPort& operator=(const FullPort&) = delete;

private:
    int m_dialled[3]{};
};
