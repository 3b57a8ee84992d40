#include "RecordingRelay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include <gtest/gtest.h>

namespace {

/// 127.0.0.`last`.
sockaddr_in loopback(std::uint32_t last, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl((127U << 24U) + last);
    return address;
}

} // namespace

RecordingRelay::RecordingRelay(std::uint16_t hubPort)
    : m_hubPort(hubPort)
    , m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , m_wake(::eventfd(0, EFD_CLOEXEC)) {
    const sockaddr_in address = loopback(2, m_hubPort);
    EXPECT_EQ(::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(m_listener, 1), 0);
    m_thread = std::thread([this] { run(); });
}

RecordingRelay::~RecordingRelay() {
    static_cast<void>(end());
    ::close(m_listener);
    ::close(m_wake);
}

std::string RecordingRelay::end() {
    if (m_thread.joinable()) {
        const std::uint64_t one = 1;
        EXPECT_EQ(::write(m_wake, &one, sizeof one), static_cast<ssize_t>(sizeof one));
        m_thread.join();
    }
    return m_copy;
}

void RecordingRelay::run() {
    std::array<pollfd, 2> watched{{{m_wake, POLLIN, 0}, {m_listener, POLLIN, 0}}};
    while (::poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents == 0) {
        const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        relay(client);
        ::close(client);
    }
}

void RecordingRelay::relay(int client) {
    const int hub = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(1, m_hubPort);
    EXPECT_EQ(::connect(hub, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::array<pollfd, 3> watched{{{m_wake, POLLIN, 0}, {client, POLLIN, 0}, {hub, POLLIN, 0}}};
    while (::poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents == 0) {
        if (watched[1].revents != 0 && !pass(client, hub))
            break;
        if (watched[2].revents != 0 && !pass(hub, client))
            break;
    }
    ::close(hub);
}

bool RecordingRelay::pass(int from, int to) {
    std::array<char, 65536> bytes{};
    const ssize_t got = ::recv(from, bytes.data(), bytes.size(), 0);
    if (got <= 0)
        return false;
    m_copy.append(bytes.data(), static_cast<std::size_t>(got));
    return ::send(to, bytes.data(), static_cast<std::size_t>(got), MSG_NOSIGNAL) == got;
}
