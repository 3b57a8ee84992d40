#include "Inflater.h"

#include "Frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <new>

namespace tivra_wire {

Inflater::Inflater() {
    if (inflateInit(&m_stream) != Z_OK)
        throw std::bad_alloc();
}

Inflater::~Inflater() {
    inflateEnd(&m_stream);
}

std::size_t Inflater::inflate(std::string_view& in, char* out, std::size_t room) {
    constexpr std::size_t MAX = std::numeric_limits<uInt>::max();
    m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    m_stream.avail_in = static_cast<uInt>(std::min(in.size(), MAX));
    m_stream.next_out = reinterpret_cast<Bytef*>(out);
    m_stream.avail_out = static_cast<uInt>(std::min(room, MAX));
    const std::size_t offered = m_stream.avail_in;
    const std::size_t space = m_stream.avail_out;
    const int result = ::inflate(&m_stream, Z_SYNC_FLUSH);
    const std::size_t taken = offered - m_stream.avail_in;
    const std::size_t written = space - m_stream.avail_out;
    in.remove_prefix(taken);
    m_taken += taken;
    m_written += written;
    if (result == Z_STREAM_END)
        m_isAtEnd = true;
    else if (result == Z_NEED_DICT)
        throw Fault(m_written, "a zlib stream without a dictionary of its own", "one that needs it");
    else if (result != Z_OK && result != Z_BUF_ERROR)
        throw Fault(m_written, "a zlib stream",
                    fmt::format("what zlib refuses near compressed byte {} ({})", m_taken,
                                m_stream.msg != nullptr ? m_stream.msg : "no reason told"));
    return written;
}

} // namespace tivra_wire
