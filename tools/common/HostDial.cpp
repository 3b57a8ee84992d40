#include "common/HostDial.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tivra_tools {

namespace {

/// 0, or the errno of a connection that doesn't come about.
int dial(const sockaddr_in& address, std::chrono::milliseconds patience) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return errno;
    int error = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        pollfd watched{fd, POLLOUT, 0};
        socklen_t length = sizeof error;
        if (poll(&watched, 1, static_cast<int>(patience.count())) <= 0)
            error = ETIMEDOUT;
        else if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
            error = errno;
    }
    close(fd);
    return error;
}

const char* meaning(int error) {
    switch (error) {
    case ECONNREFUSED:
        return "refuses the connection: nobody listens there";
    case ETIMEDOUT:
        return "doesn't answer at all: the machine is down, or a firewall swallows what is sent to it";
    case ENETUNREACH:
    case EHOSTUNREACH:
        return "can't be reached: there is no way to it in the network";
    default:
        return "can't be dialled";
    }
}

} // namespace

std::string dialOutcome(const std::string& host, std::chrono::milliseconds patience) {
    const std::size_t colon = host.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (colon == std::string::npos ||
        inet_pton(AF_INET, host.substr(0, colon).c_str(), &address.sin_addr) != 1)
        return host + " is no address";
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(host.c_str() + colon + 1, nullptr, 10)));
    const int error = dial(address, patience);
    if (error == 0)
        return fmt::format("{} takes connections now; if it speaks TLS alone, give --tls", host);
    const char* const name = strerrorname_np(error);
    return fmt::format("{} {} ({}, errno {})", host, meaning(error), name == nullptr ? "?" : name, error);
}

} // namespace tivra_tools
