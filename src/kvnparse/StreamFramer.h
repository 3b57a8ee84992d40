#pragma once

#include "kvnparse/Framer.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <tp/ByteStream.h>

namespace KVNAPI {

/// Reads a connection and cuts what comes into frames. Used by one thread; owns its framer and its buffer,
/// and borrows the stream.
class StreamFramer {
public:
    struct Free {
        void operator()(char* bytes) const noexcept { std::free(bytes); }
    };
    using Buffer = std::unique_ptr<char, Free>;

    /// Takes a buffer of `size` bytes; `alloc` is the usual way to one.
    StreamFramer(std::unique_ptr<Framer> framer, Buffer buffer, int size) noexcept;

    /// A framer of that short name over a buffer of `size` bytes. Null, with a text in te_geterror, for an
    /// unknown name or when there is no memory.
    [[nodiscard]] static std::unique_ptr<StreamFramer> alloc(const char* name, int size);

    /// One read cycle. Returns what `read` gave: the count, 0 when the peer has closed, -1 with `errno`. With
    /// no room left it returns 1 without reading, and `pull` then reports the block as too large.
    [[nodiscard]] int push(const tp::ByteStream& stream);

    /// As Framer::pull; the caller loops until it doesn't return 0. A frame stays valid until the next push.
    [[nodiscard]] int pull(bufref* out) { return m_frame->pull(out); }

    /// As Framer::moveRemaining: for a reader that goes on with the stream by other means.
    [[nodiscard]] int moveRemaining(bufref dst) { return m_frame->moveRemaining(dst); }

    void reset();

private:
    std::unique_ptr<Framer> m_frame;
    Buffer m_buf;
    std::int32_t m_read = 0; // bytes held in m_buf
    std::int32_t m_maxBufSize;
};

} // namespace KVNAPI
