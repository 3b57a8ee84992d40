#ifndef TIVRA_TESTS_SIM_INFLATER_H
#define TIVRA_TESTS_SIM_INFLATER_H

#include <zlib.h>

#include <array>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

/// The reader's end of one zlib stream.
class Inflater {
public:
    Inflater() {
        if (inflateInit(&m_stream) != Z_OK)
            throw std::bad_alloc();
    }
    ~Inflater() { inflateEnd(&m_stream); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// What can be had of the stream so far.
    std::string operator()(std::string_view bytes) {
        std::string all;
        std::array<char, 65536> out;
        m_stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
        m_stream.avail_in = static_cast<uInt>(bytes.size());
        do {
            m_stream.next_out = reinterpret_cast<Bytef*>(out.data());
            m_stream.avail_out = static_cast<uInt>(out.size());
            const int code = inflate(&m_stream, Z_NO_FLUSH);
            if (code != Z_OK && code != Z_BUF_ERROR)
                throw std::runtime_error("the hub sent no zlib stream");
            all.append(out.data(), out.size() - m_stream.avail_out);
        } while (m_stream.avail_out == 0);
        return all;
    }

private:
    z_stream m_stream{};
};

#endif
