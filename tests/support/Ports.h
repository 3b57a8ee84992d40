#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

/// A port that is taken and that nobody listens at, so that whoever dials it is refused.
class ClosedPort {
public:
    ClosedPort() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        m_place.sin_family = AF_INET;
        m_place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* generic = reinterpret_cast<sockaddr*>(&m_place);
        socklen_t length = sizeof m_place;
        EXPECT_EQ(::bind(m_socket, generic, length), 0);
        EXPECT_EQ(::getsockname(m_socket, generic, &length), 0);
    }
    ~ClosedPort() { ::close(m_socket); }
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;

    [[nodiscard]] std::uint16_t port() const { return ntohs(m_place.sin_port); }

private:
    sockaddr_in m_place{};
    int m_socket;
};

/// A port whose queue of connections is full, so that one more is neither taken nor refused.
class FullPort {
public:
    FullPort() {
        m_place.sin_family = AF_INET;
        m_place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* generic = reinterpret_cast<sockaddr*>(&m_place);
        socklen_t length = sizeof m_place;
        EXPECT_EQ(::bind(m_sockets[0], generic, length), 0);
        EXPECT_EQ(::listen(m_sockets[0], 0), 0);
        EXPECT_EQ(::getsockname(m_sockets[0], generic, &length), 0);
        for (std::size_t i = 1; i < std::size(m_sockets); ++i)
            static_cast<void>(::connect(m_sockets[i], generic, length));
    }
    ~FullPort() {
        for (const int socket : m_sockets)
            ::close(socket);
    }
    FullPort(const FullPort&) = delete;
    FullPort& operator=(const FullPort&) = delete;

    [[nodiscard]] std::uint16_t port() const { return ntohs(m_place.sin_port); }
    [[nodiscard]] std::string hostString() const { return "127.0.0.1:" + std::to_string(port()); }

private:
    static int made() { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

    sockaddr_in m_place{};
    int m_sockets[4]{made(), made(), made(), made()};
};
