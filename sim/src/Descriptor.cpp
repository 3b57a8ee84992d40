#include "Descriptor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tivra_sim {

namespace {

constexpr int kBacklog = 512;

} // namespace

void failed(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        m_fd = other.release();
    }
    return *this;
}

int Descriptor::release() {
    return std::exchange(m_fd, -1);
}

void Descriptor::reset() {
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

Descriptor checked(int fd, const char* what) {
    if (fd < 0)
        failed(what);
    return Descriptor(fd);
}

std::string placeText(const std::string& address, std::uint16_t port) {
    return address + ":" + std::to_string(port);
}

Descriptor holdPort(const std::string& address, std::uint16_t& port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1)
        throw std::system_error(std::make_error_code(std::errc::invalid_argument),
                                "cannot listen on \"" + address + "\", which is no IPv4 address");
    Descriptor holder =
        checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "cannot make a socket");
    const int yes = 1;
    ::setsockopt(holder.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const std::string text = placeText(address, port);
    // The address structures of the socket calls share their first member, which says what they are.
    auto* generic = reinterpret_cast<sockaddr*>(&place);
    if (::bind(holder.get(), generic, sizeof place) != 0)
        failed("cannot bind to " + text);
    socklen_t length = sizeof place;
    if (::getsockname(holder.get(), generic, &length) != 0)
        failed("cannot read the address of " + text);
    port = ntohs(place.sin_port);
    return holder;
}

Descriptor listenOn(const std::string& address, std::uint16_t& port) {
    Descriptor listener = holdPort(address, port);
    if (::listen(listener.get(), kBacklog) != 0)
        failed("cannot listen on " + placeText(address, port));
    return listener;
}

} // namespace tivra_sim
