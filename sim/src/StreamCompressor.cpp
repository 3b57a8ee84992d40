#include "StreamCompressor.h"

#include <new>

namespace tivra_sim {

namespace {

constexpr std::size_t kRarely = std::size_t{1} << 16;

} // namespace

StreamCompressor::StreamCompressor(int level, Flush flush) : m_flush(flush) {
    if (deflateInit(&m_stream, level) != Z_OK)
        throw std::bad_alloc();
}

StreamCompressor::~StreamCompressor() {
    deflateEnd(&m_stream);
}

int StreamCompressor::flushFor(std::size_t bytes, bool urgent) {
    m_held += bytes;
    const bool isDue = urgent || m_flush == Flush::EachBatch || m_flush == Flush::EachFrame ||
                       (m_flush == Flush::Rarely && m_held >= kRarely);
    if (isDue) {
        m_held = 0;
        return Z_SYNC_FLUSH;
    }
    return m_flush == Flush::EachBlock ? Z_BLOCK : Z_NO_FLUSH;
}

void StreamCompressor::compress(std::string_view bytes, bool urgent, std::string& out) {
    // zlib takes its input as bytes of another type and does not change them.
    m_stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
    m_stream.avail_in = static_cast<uInt>(bytes.size());
    const int flush = flushFor(bytes.size(), urgent);
    std::size_t room = bytes.size() / 4 + 64;
    do {
        const std::size_t end = out.size();
        out.resize(end + room);
        m_stream.next_out = reinterpret_cast<Bytef*>(out.data() + end);
        m_stream.avail_out = static_cast<uInt>(room);
        deflate(&m_stream, flush);
        out.resize(end + room - m_stream.avail_out);
    } while (m_stream.avail_out == 0);
}

} // namespace tivra_sim
