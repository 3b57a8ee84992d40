#include "common/Listener.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <system_error>

namespace tivra_tools {

namespace {

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category());
}

sockaddr_in addressOf(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data() + colon + 1, text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size() ||
        inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) != 1)
        fail(EINVAL);
    address.sin_port = htons(port);
    return address;
}

} // namespace

int listenAt(std::string& text, int backlog) {
    sockaddr_in address = addressOf(text);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd, plain, length) != 0 || listen(fd, backlog) != 0 || getsockname(fd, plain, &length) != 0) {
        const int error = errno;
        if (fd >= 0)
            close(fd);
        fail(error);
    }
    text = fmt::format("{}:{}", text.substr(0, text.rfind(':')), ntohs(address.sin_port));
    return fd;
}

} // namespace tivra_tools
