#include "kvnparse/ZlibInflater.h"

#include <algorithm>
#include <limits>

namespace KVNAPI {
namespace {

// zlib takes its input and output as bytes of another signedness.
Bytef* asBytes(const char* text) {
    return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(text));
}

uInt limited(std::size_t size) {
    return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

} // namespace

Inflater::Code ZlibInflater::restart() {
    inflateEnd(&m_stream); // does nothing to one that has never begun
    m_stream = z_stream{};
    return inflateInit_(&m_stream, ZLIB_VERSION, static_cast<int>(sizeof m_stream)) == Z_OK ? PROGRESS
                                                                                            : NO_MEMORY;
}

Inflater::Step ZlibInflater::inflate(bufref input, char* output, std::size_t room) {
    const uInt given = limited(input.len);
    const uInt space = limited(room);
    m_stream.next_in = asBytes(input.buf);
    m_stream.avail_in = given;
    m_stream.next_out = asBytes(output);
    m_stream.avail_out = space;
    const int code = ::inflate(&m_stream, Z_NO_FLUSH);
    Step step;
    if (code == Z_DATA_ERROR || code == Z_NEED_DICT)
        step.code = DATA_ERROR;
    else if (code == Z_MEM_ERROR)
        step.code = NO_MEMORY;
    step.consumed = given - m_stream.avail_in;
    step.produced = space - m_stream.avail_out;
    return step;
}

} // namespace KVNAPI
