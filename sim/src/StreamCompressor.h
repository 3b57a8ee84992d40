#pragma once

#include "tivra_sim/HubConfig.h"

#include <cstddef>
#include <string>
#include <string_view>

#include <zlib.h>

namespace tivra_sim {

/// Makes one zlib stream of all bytes that it is given. Used by the hub's thread alone.
class StreamCompressor {
public:
    StreamCompressor(int level, Flush flush);
    ~StreamCompressor();
    StreamCompressor(const StreamCompressor&) = delete;
    StreamCompressor& operator=(const StreamCompressor&) = delete;

    /// Whether each frame is to be given for itself.
    [[nodiscard]] bool takesFramesOneByOne() const { return m_flush == Flush::EachFrame; }

    /// Appends to `out` what `bytes` come to. A reader of `out` can inflate all of them when they are
    /// `urgent`; otherwise it depends on the flushes, and there may be nothing to append.
    void compress(std::string_view bytes, bool urgent, std::string& out);

private:
    [[nodiscard]] int flushFor(std::size_t bytes, bool urgent);

    z_stream m_stream{};
    const Flush m_flush;
    std::size_t m_held = 0; ///< bytes since the last flush
};

} // namespace tivra_sim
