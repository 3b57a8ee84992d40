#pragma once

#include <sys/types.h>

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

} // namespace tp
