#include "kvnparse/ZKVNParse.h"

#include "kvnparse/KVNParsers.h"

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace KVNAPI {
namespace {

// zlib takes its input and output as bytes of another signedness.
Bytef* asBytes(const char* text) {
    return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(text));
}

} // namespace

ZKVNParser::ZKVNParser() : outbuf(std::make_unique<char[]>(kOutBufferSize)) {
    eprintf(EPF_DBUG, "ZKVNParser: zlibVersion=%s; ZLIB_VERSION=%s", zlibVersion(), ZLIB_VERSION);
    zlibInit();
}

ZKVNParser::~ZKVNParser() {
    inflateEnd(&d_stream);
}

int ZKVNParser::zlibInit() {
    d_stream = z_stream{};
    return inflateInit_(&d_stream, ZLIB_VERSION, static_cast<int>(sizeof d_stream));
}

int ZKVNParser::setMetaMap(DataMap* map) {
    std::unique_ptr<Parser> inner = Parser::alloc("kvn", map, static_cast<int>(kOutBufferSize));
    if (inner == nullptr) {
        tp::te_error("Could not allocate KVN Parser");
        return 1;
    }
    kvnParser_ = std::move(inner);
    return kvnParser_->setMetaMap(map);
}

int ZKVNParser::setOption(const char* name, const char* value) {
    return kvnParser_ == nullptr ? -1 : kvnParser_->setOption(name, value);
}

void ZKVNParser::push(bufref bytes) {
    buf_ = bytes;
    // The block begins with whatever moveRemaining has kept, so what is left of an older one is in it.
    firstUncompressIteration = true;
    m_freshInput = bytes.len > 0;
}

int ZKVNParser::moveRemaining(bufref dst) {
    // Bytes that were pushed and never looked at count as a whole.
    const char* from = m_freshInput ? buf_.buf : reinterpret_cast<const char*>(d_stream.next_in);
    std::size_t have = m_freshInput ? buf_.len : d_stream.avail_in;
    if (have > dst.len) {
        eprintf(EPF_WARN, "ZKVNParser::moveRemaining(): truncating have=%lu to out.len=%lu",
                static_cast<unsigned long>(have), static_cast<unsigned long>(dst.len));
        have = dst.len;
    }
    if (have > 0)
        std::memmove(const_cast<char*>(dst.buf), from, have);
    d_stream.next_in = asBytes(dst.buf);
    d_stream.avail_in = static_cast<uInt>(have);
    m_freshInput = false;
    return static_cast<int>(have);
}

int ZKVNParser::pull(bufref* out) {
    return unCompressAndPushToKVNParser(out);
}

int ZKVNParser::pull(Message* message) {
    if (!kvnParsePullInProgress) {
        const int result = unCompressAndPushToKVNParser(nullptr);
        if (result < 0)
            return result;
    }
    return pullKVNMessages(message);
}

int ZKVNParser::pullKVNMessages(Message* message) {
    for (;;) {
        const int result = kvnParser_->pull(message);
        if (result <= 0) {
            kvnParsePullInProgress = true;
            return result;
        }
        kvnParsePullInProgress = false;
        if (firstUncompressIteration && !m_freshInput && !m_outputPending) {
            buf_ = bufref();
            return result;
        }
        const int inflated = unCompressAndPushToKVNParser(nullptr);
        if (inflated < 0)
            return inflated;
    }
}

int ZKVNParser::unCompressAndPushToKVNParser(bufref* out) {
    if (out == nullptr && kvnParser_ == nullptr) {
        tp::te_error("Could not allocate KVN Parser");
        return -1;
    }
    if (firstUncompressIteration) {
        d_stream.next_in = asBytes(buf_.buf);
        d_stream.avail_in = static_cast<uInt>(buf_.len);
        m_freshInput = false;
    }
    std::size_t room = 0;
    if (out != nullptr) {
        room = std::min<std::size_t>(out->len, std::numeric_limits<uInt>::max());
        d_stream.next_out = asBytes(out->buf);
        bytes_read = 0;
    } else {
        // An incomplete frame stays at the front, and inflating goes on behind it.
        bytes_read =
            static_cast<std::uint32_t>(kvnParser_->moveRemaining(bufref(outbuf.get(), kOutBufferSize)));
        room = kOutBufferSize - bytes_read;
        d_stream.next_out = asBytes(outbuf.get() + bytes_read);
        if (room == 0) {
            // The frame in progress can never complete, and another turn would change nothing.
            reset();
            tp::te_error("Block too large");
            return -1;
        }
    }
    d_stream.avail_out = static_cast<uInt>(room);
    d_stream.total_out = 0;

    int code = inflate(&d_stream, Z_NO_FLUSH);
    if (code == Z_NEED_DICT)
        code = Z_DATA_ERROR;
    if (code == Z_DATA_ERROR || code == Z_MEM_ERROR)
        return failStream(code);

    const auto produced = static_cast<std::size_t>(d_stream.total_out);
    m_outputPending = d_stream.avail_out == 0;
    // What is left of the input is what a repeated pull and moveRemaining go on with.
    buf_ = bufref(reinterpret_cast<const char*>(d_stream.next_in), d_stream.avail_in);
    if (out != nullptr) {
        firstUncompressIteration = true;
        if (m_outputPending)
            eprintf(EPF_DBUG,
                    "***ZKVNParser::unCompressAndPushToKVNParser: d_stream.avail_out=%u (br->len=%lu)",
                    d_stream.avail_out, static_cast<unsigned long>(room));
        out->len = static_cast<bufref_len_t>(produced);
        return 0;
    }
    firstUncompressIteration = !m_outputPending;
    bytes_read += static_cast<std::uint32_t>(produced);
    if (bytes_read > 0)
        kvnParser_->push(bufref(outbuf.get(), bytes_read));
    return 0;
}

int ZKVNParser::failStream(int code) {
    char reason[128] = "";
    if (d_stream.msg != nullptr) {
        const std::size_t length = std::min(std::strlen(d_stream.msg), sizeof reason - 1);
        std::memcpy(reason, d_stream.msg, length);
    }
    inflateEnd(&d_stream);
    const int restarted = zlibInit();
    reset();
    tp::te_error("zlib error (%d(%s), %d)", code, reason, restarted);
    return -1;
}

void ZKVNParser::reset() {
    inflateEnd(&d_stream);
    buf_ = bufref();
    if (kvnParser_ != nullptr)
        kvnParser_->reset();
    zlibInit();
    firstUncompressIteration = true;
    m_freshInput = false;
    m_outputPending = false;
    kvnParsePullInProgress = false;
    bytes_read = 0;
}

std::unique_ptr<Parser> newZKVNparser(int /*maxBufferSize*/) {
    return std::make_unique<ZKVNParser>();
}

} // namespace KVNAPI
