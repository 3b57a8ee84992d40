#include "tivra_testkit/Inflater.h"

#include <array>
#include <new>
#include <stdexcept>

#include <zlib.h>

namespace tivra_testkit {

struct Inflater::Stream {
    z_stream zlib{};
};

Inflater::Inflater() : m_stream(std::make_unique<Stream>()) {
    if (inflateInit(&m_stream->zlib) != Z_OK)
        throw std::bad_alloc();
}

Inflater::~Inflater() {
    inflateEnd(&m_stream->zlib);
}

std::string Inflater::operator()(std::string_view bytes) {
    z_stream& zlib = m_stream->zlib;
    std::string all;
    std::array<char, 65536> out;
    zlib.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
    zlib.avail_in = static_cast<uInt>(bytes.size());
    do {
        zlib.next_out = reinterpret_cast<Bytef*>(out.data());
        zlib.avail_out = static_cast<uInt>(out.size());
        const int code = inflate(&zlib, Z_NO_FLUSH);
        if (code != Z_OK && code != Z_BUF_ERROR)
            throw std::runtime_error("the hub sent no zlib stream");
        all.append(out.data(), out.size() - zlib.avail_out);
    } while (zlib.avail_out == 0);
    return all;
}

} // namespace tivra_testkit
