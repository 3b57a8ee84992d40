#pragma once

#include <new>
#include <string>
#include <string_view>

#include <zlib.h>

namespace kvnparse_test {

/// A hub's end of a compressed connection: one stream over all that it is given.
class Deflater {
public:
    explicit Deflater(int level = Z_DEFAULT_COMPRESSION) {
        if (deflateInit(&m_stream, level) != Z_OK)
            throw std::bad_alloc();
    }
    ~Deflater() { deflateEnd(&m_stream); }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    std::string operator()(std::string_view bytes, int flush = Z_SYNC_FLUSH) {
        // Room for what earlier calls have kept back, too.
        std::string out(bytes.size() + (1U << 18), '\0');
        m_stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
        m_stream.avail_in = static_cast<uInt>(bytes.size());
        m_stream.next_out = reinterpret_cast<Bytef*>(out.data());
        m_stream.avail_out = static_cast<uInt>(out.size());
        deflate(&m_stream, flush);
        out.resize(out.size() - m_stream.avail_out);
        return out;
    }

private:
    z_stream m_stream{};
};

} // namespace kvnparse_test
