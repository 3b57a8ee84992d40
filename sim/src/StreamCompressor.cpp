#include "StreamCompressor.h"

#include <new>

namespace tivra_sim {

StreamCompressor::StreamCompressor() {
    // Updates resemble each other so much that trying harder gains little and would hold a fast playback up.
    if (deflateInit(&m_stream, Z_BEST_SPEED) != Z_OK)
        throw std::bad_alloc();
}

StreamCompressor::~StreamCompressor() {
    deflateEnd(&m_stream);
}

void StreamCompressor::compress(std::string_view bytes, std::string& out) {
    // zlib takes its input as bytes of another type and does not change them.
    m_stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
    m_stream.avail_in = static_cast<uInt>(bytes.size());
    std::size_t room = bytes.size() / 4 + 64;
    do {
        const std::size_t end = out.size();
        out.resize(end + room);
        m_stream.next_out = reinterpret_cast<Bytef*>(out.data() + end);
        m_stream.avail_out = static_cast<uInt>(room);
        deflate(&m_stream, Z_SYNC_FLUSH);
        out.resize(end + room - m_stream.avail_out);
    } while (m_stream.avail_out == 0);
}

} // namespace tivra_sim
