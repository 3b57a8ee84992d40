#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

namespace tp {

/// What lies between a socket that blocks nobody and the bytes that its owner reads and writes, such as an
/// encryption. It may have taken in more than it has handed out, which the socket doesn't show any more.
class StreamLayer {
public:
    virtual ~StreamLayer() = default;
    StreamLayer(const StreamLayer&) = delete;
    StreamLayer& operator=(const StreamLayer&) = delete;

    /// As ::read: the count, 0 once the peer has ended the stream in order, -1 with `errno`.
    [[nodiscard]] virtual ssize_t read(void* into, std::size_t length) = 0;
    /// As ::write. After -1 with EAGAIN and isWriting() the call has to be repeated with the same bytes.
    [[nodiscard]] virtual ssize_t write(const void* bytes, std::size_t length) = 0;
    /// The last read has ended for lack of room, so that there may be bytes that no poll tells of.
    [[nodiscard]] virtual bool hasUnread() const = 0;
    /// Part of a write that was refused with EAGAIN has gone out.
    [[nodiscard]] virtual bool isWriting() const = 0;
    /// A read goes on only once the socket takes bytes.
    [[nodiscard]] virtual bool readAwaitsRoom() const = 0;
    /// Nothing more can be read.
    [[nodiscard]] virtual bool hasEnded() const = 0;

protected:
    StreamLayer() = default;
};

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
