#ifndef TIVRA_SIM_STREAMCOMPRESSOR_H
#define TIVRA_SIM_STREAMCOMPRESSOR_H

#include <string>
#include <string_view>

#include <zlib.h>

namespace tivra_sim {

/// Makes one zlib stream of all bytes that it is given. Used by the hub's thread alone.
class StreamCompressor {
public:
    StreamCompressor();
    ~StreamCompressor();
    StreamCompressor(const StreamCompressor&) = delete;
    StreamCompressor& operator=(const StreamCompressor&) = delete;

    /// Appends to `out` what `bytes` come to, in such a way that a reader of `out` can inflate all of them.
    void compress(std::string_view bytes, std::string& out);

private:
    z_stream m_stream{};
};

} // namespace tivra_sim

#endif
