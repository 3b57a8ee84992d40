#pragma once

#include "kvnparse/Inflater.h"
#include "kvnparse/Parser.h"
#include "kvnparse/bufref.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace KVNAPI {

/// Reads a connection whose whole byte stream is one continuous zlib stream: as messages through an inner
/// "kvn" parser while a hub is logged in, as plain bytes straight into the caller's space afterwards. Used by
/// one thread.
class ZKVNParser final : public Parser {
public:
    ZKVNParser();

    [[nodiscard]] int setMetaMap(DataMap* map) override;
    [[nodiscard]] int setOption(const char* name, const char* value) override;
    void push(bufref bytes) override;
    /// Keeps the compressed bytes that have not been consumed.
    [[nodiscard]] int moveRemaining(bufref dst) override;
    [[nodiscard]] int pull(Message* message) override;
    /// Inflates into the space that `*out` describes and sets its length to the bytes produced.
    [[nodiscard]] int pull(bufref* out) override;
    /// A fresh stream.
    void reset() override;
    /// Always 0: a frame has no length of its own in a compressed stream.
    [[nodiscard]] unsigned int msglen() const override { return 0; }

private:
    static constexpr std::size_t kOutBufferSize = 131072;

    [[nodiscard]] int unCompressAndPushToKVNParser(bufref* out);
    [[nodiscard]] int failStream(Inflater::Code code);
    [[nodiscard]] int pullKVNMessages(Message* message);

    bufref buf_;
    std::unique_ptr<Parser> kvnParser_;
    std::unique_ptr<Inflater> m_inflater = makeInflater();
    bufref m_rest;                        ///< what the last inflate has left of its input
    bool firstUncompressIteration = true; ///< the next inflate takes its input from `buf_`
    bool m_freshInput = false;            ///< `buf_` has been pushed and not been looked at
    bool m_outputPending = false;         ///< the last inflate filled its space and may have more
    bool kvnParsePullInProgress = false;  ///< the inner parser may still hold whole frames
    std::uint32_t bytes_read = 0;         ///< bytes held in `outbuf` for the inner parser
    std::unique_ptr<char[]> outbuf;
};

} // namespace KVNAPI
