#pragma once

#include <cstdint>
#include <string>

namespace tivra_sim {

/// A file descriptor that is closed when its owner goes.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return m_fd; }
    int release();
    void reset();

private:
    int m_fd;
};

/// Throws what errno says as std::system_error with `what`.
[[noreturn]] void failed(const std::string& what);

/// The descriptor that a system call gave. Throws std::system_error with `what` when it failed.
[[nodiscard]] Descriptor checked(int fd, const char* what);

/// "address:port".
[[nodiscard]] std::string placeText(const std::string& address, std::uint16_t port);

/// A socket that is bound to an IPv4 address and never listens: while it is open the system gives the port to
/// nobody who asks for a free one, and listenOn can have it time and again. `port` 0 takes a free one and
/// tells it. Throws std::system_error.
[[nodiscard]] Descriptor holdPort(const std::string& address, std::uint16_t& port);

/// A socket that listens on an IPv4 address without blocking; `port` 0 takes a free one and tells it. Throws
/// std::system_error.
[[nodiscard]] Descriptor listenOn(const std::string& address, std::uint16_t& port);

} // namespace tivra_sim
