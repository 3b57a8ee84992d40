#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

#include <tp/StreamLayer.h>

namespace tp {

/// The bytes of a connection: those of its socket, or of the layer over it. Borrows both, and is passed by
/// value.
class ByteStream {
public:
    /// A bare descriptor is such a stream too.
    ByteStream(int fd) noexcept : m_fd(fd) {} // NOLINT(google-explicit-constructor)
    ByteStream(int fd, StreamLayer* layer) noexcept : m_fd(fd), m_layer(layer) {}

    [[nodiscard]] int fd() const noexcept { return m_fd; }
    [[nodiscard]] bool isLayered() const noexcept { return m_layer != nullptr; }
    [[nodiscard]] bool hasUnread() const { return m_layer != nullptr && m_layer->hasUnread(); }

    [[nodiscard]] ssize_t read(void* into, std::size_t length) const {
        return m_layer == nullptr ? ::read(m_fd, into, length) : m_layer->read(into, length);
    }
    [[nodiscard]] ssize_t write(const void* bytes, std::size_t length) const {
        return m_layer == nullptr ? ::send(m_fd, bytes, length, MSG_NOSIGNAL) : m_layer->write(bytes, length);
    }

private:
    int m_fd;
    StreamLayer* m_layer = nullptr;
};

} // namespace tp
